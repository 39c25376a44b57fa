// app: the application's state, what it is asked by the program, and the words it knows.
//
// There is one record, made by the first call and destroyed when the process ends in order. Options and commands are
// rows of one table each; a table by name and a map by shortcut lead to them.
#include "app/app.hpp"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string_view>
#include <utility>

#include "base/debug.hpp"
#include "platform/multi_platform_console.hpp"
#include "platform/multi_platform_system.hpp"
#include "tq4/debug.h"
#include "tq4/sock_api.h"
#include "tq4/system.h"

namespace {

Tq4_app_obj &app() { return Tq4_app_obj::The(); }

// A null text counts as an empty one.
const char *text_or_nothing(const char *text) { return text ? text : ""; }

Tq4_app_obj::Text new_text(const char *text = nullptr) {
    auto made = Tq4_make_hooked<Tq4_string>(Tq4_cxx_support->new_string);
    (*made)->Strcpy(made.get(), text);
    return made;
}

const char *text_of(const Tq4_app_obj::Text &text) { return (*text)->c_str(text.get()); }

// Options. Those that print end the run.
template <auto Print> int only_print() {
    (app().*Print)();
    return 1;
}
template <int Charset> int choose_charset() {
    app().ChooseCharset(Charset);
    return Tq4_app_arg::None;
}
int choose_daemon() {
    app().m_run_type = Tq4_app_run_type_daemon;
    return Tq4_app_arg::None;
}
int stop_daemon() { return app().RunStopOption(); }

constexpr const char *utf8_help = "console print in utf8 charset";
constexpr const char *gb18030_help = "console print in gb18030 charset";

constexpr Tq4_app_arg options[] = {
    {"--charset=utf8", "-utf8", utf8_help, false, choose_charset<0>},
    {"--charset=gb18030", "-gb", gb18030_help, false, choose_charset<1>},
    {"--service=start", "-start", "以后台服务模式启动程序", false, choose_daemon},
    {"--service=stop", "-stop", "停止先前以后台服务方式运行的进程", true, stop_daemon},
    {"--help", "-h", "显示帮助", true, only_print<&Tq4_app_obj::PrintOptions>},
    {"--version", "-v", "显示版本", true, only_print<&Tq4_app_obj::PrintVersion>},
};

void nothing(const char *) {}

// "--service=stop" types it, so no other command may take its place.
constexpr const char *stop_name = "stop";

struct Built_in {
    const char *name, *shortcut, *comment;
    Tq4_app_cmd_handle handler;
    bool local, exits;
};
constexpr Built_in commands[] = {
    {"help", "h", "显示帮助", [](const char *) { app().PrintCommands(); }, true, false},
    {"version", "v", "显示版本", [](const char *) { app().PrintVersion(); }, true, false},
    {"quit", "q", "退出交互，对于独立运行程序，意味着完整退出，对于后台服务，意味着服务还继续", nothing, true, true},
    {stop_name, "", "停止后台服务和前台交互", nothing, false, true},
    {"utf8", "utf", utf8_help, [](const char *) { app().ChooseCharset(0); }, true, false},
    {"gb18030", "gb", gb18030_help, [](const char *) { app().ChooseCharset(1); }, true, false},
};

// Makes a record known by its name and, unless that is empty, by its shortcut.
void make_known(const Tq4_app_obj::Table &by_name, const Tq4_own<Tq4_strmap> &by_shortcut, const char *name,
                const char *shortcut, const void *record) {
    auto *pointer = const_cast<void *>(record);
    (*by_name)->SetPtrS(by_name.get(), name, pointer);
    if (*shortcut) (*by_shortcut)->SetAtS(by_shortcut.get(), pointer, shortcut);
}

// Shortcuts come first: a command may have a shortcut that is another's name.
template <class Record>
const Record *look_up(const Tq4_app_obj::Table &by_name, const Tq4_own<Tq4_strmap> &by_shortcut, const char *word) {
    const void *found = (*by_shortcut)->LookupS(by_shortcut.get(), word);
    if (!found) found = (*by_name)->PtrS(by_name.get(), word);
    return static_cast<const Record *>(found);
}

// --- Commands as a list ---

// A command that a shell hands to the service, and that does not end it.
bool is_service_command(const Tq4_app_cmd &command) { return !command.m_local_cmd && !command.m_exit_flag; }

struct Listing {
    const char *heading;
    bool of_service; // the kind of commands
    bool begun = false;
};
constexpr Listing listings[] = {{"        指令         [缩写] :  描述\n", false},
                                {"        服务指令     [缩写] :  描述（在服务进程中执行）\n", true}};

int list_command(Tq4_key, Tq4_value value, void *context) {
    auto &listing = *static_cast<Listing *>(context);
    const auto &command = *static_cast<const Tq4_app_cmd *>((*value)->GetPtr(value));
    if (is_service_command(command) != listing.of_service) return 0;
    if (!std::exchange(listing.begun, true)) Tq4_debug_api->Printf(0, "%s", listing.heading);
    Tq4_debug_api->Printf(0, "%-20s [%-5s] : %s\n", text_of(command.m_cmd_name), text_of(command.m_cmd_shortcut),
                          text_of(command.m_comment));
    return 0;
}

// --- What others call the frame for ---

void log_sink(int level, const char *format, va_list args) {
    const Tq4_log log = app().m_log.get();
    (*log)->vPrintf(log, level, format, args);
}

struct Registered {
    void *object;
    Tq4_app_delete delete_object;
};
void delete_registered(void *payload) {
    auto *registered = static_cast<Registered *>(payload);
    if (registered->delete_object) registered->delete_object(registered->object);
    delete registered;
}

} // namespace

Tq4_app_obj &Tq4_app_obj::The() {
    static Tq4_app_obj the;
    return the;
}

Tq4_app_obj::Tq4_app_obj()
    : m_pathbuffer(new_text()), m_namebuffer(new_text()), m_version(new_text()), m_build_time(new_text()),
      m_author(new_text()), m_arg_cmds(Tq4_make_hooked<Tq4_value_table>(Tq4_cxx_support->new_table)),
      m_arg_shotcut(Tq4_make<Tq4_strmap>(Tq4_strmap_oitf)),
      m_cmds(Tq4_make_hooked<Tq4_value_table>(Tq4_cxx_support->new_table)),
      m_cmd_shotcut(Tq4_make<Tq4_strmap>(Tq4_strmap_oitf)), m_pipe(new_text()),
      m_log(Tq4_make<Tq4_log>(Tq4_log_oitf, "for all threads")), m_global_obj(Tq4_make<Tq4_queue>(Tq4_queue_oitf)),
      m_obj_map(Tq4_make<Tq4_strmap>(Tq4_strmap_oitf)), m_stream(Tq4_make<Tq4_stream>(Tq4_stream_oitf)),
      add_history([](const char *) {}) {
    MP_OpenStandardDescriptors(); // before the log opens a file, which must not get one of their numbers
    LearnName();
    Tq4_debug_api->Init();
    Tq4_system_api->gettimeofday(&m_start_sec, &m_start_usec);
    srandom(static_cast<unsigned>(m_start_sec));
    (*m_log)->Init(m_log.get(), "Tq4_app", 100);
    (*m_log)->MainDir(m_log.get(), (Directory("TQ4_LOG_DIR") + "/log_files").c_str());
    Tq4_debug_api->SetLog(log_sink);
    (*m_pipe)->Sprintf(m_pipe.get(), "%s/tq4_run_var/%s/__1pipe__", Directory("TQ4_RUN_DIR").c_str(), m_name);
    for (const Tq4_app_arg &option : options)
        make_known(m_arg_cmds, m_arg_shotcut, option.m_arg_name, option.m_arg_shortcut, &option);
    for (const Built_in &each : commands)
        AddCmd(each.name, each.shortcut, each.handler, each.comment, each.local, each.exits);
}

Tq4_app_obj::~Tq4_app_obj() {
    (*m_global_obj)->RemoveAll(m_global_obj.get());
    CloseControl();
    Tq4_debug_restore_log(log_sink); // unless the program has installed its own
}

void Tq4_app_obj::LearnName() {
    const std::string whole = Tq4_system_api->ExePathName(m_namebuffer.get());
    if (whole.empty()) m_name_error = Tq4_sock_api->Error();
    const std::size_t slash = whole.rfind('/');
    (*m_namebuffer)->Strcpy(m_namebuffer.get(), whole.substr(slash + 1).c_str());
    (*m_pathbuffer)->Strcpy(m_pathbuffer.get(), slash == whole.npos ? "." : whole.substr(0, slash).c_str());
    m_name = text_of(m_namebuffer);
    m_path = text_of(m_pathbuffer);
}

// The directory that a variable of the environment names instead of the executable's.
std::string Tq4_app_obj::Directory(const char *variable) const {
    const char *named = MP_GetEnvironment(variable);
    if (!named || !*named) return m_path;
    if (*named == '/') return named;
    const Text current = new_text(); // it is the same directory when the program has gone elsewhere
    const std::string here = Tq4_system_api->CurrentDir(current.get());
    return here.empty() ? named : here + "/" + named;
}

void Tq4_app_obj::SetInfo(const char *version, const char *build_time, const char *author) {
    (*m_version)->Strcpy(m_version.get(), version);
    (*m_build_time)->Strcpy(m_build_time.get(), build_time);
    (*m_author)->Strcpy(m_author.get(), author);
}

void Tq4_app_obj::AddCmd(const char *name, const char *shortcut, Tq4_app_cmd_handle handler, const char *comment,
                         bool local, bool exits) {
    if (!name || !*name || !handler) return;
    shortcut = text_or_nothing(shortcut);
    const bool takes_stop = std::strcmp(name, stop_name) == 0 || std::strcmp(shortcut, stop_name) == 0;
    if (takes_stop && FindCmd(stop_name)) {
        Tq4_debug_api->log(0, "Tq4_app_AddCmd failed,\"%s\" is the frame's own\n", stop_name);
        return;
    }
    ForgetShortcut(name);
    m_cmd_records.push_back({new_text(name), new_text(shortcut), new_text(comment), handler, local, exits});
    make_known(m_cmds, m_cmd_shotcut, name, shortcut, &m_cmd_records.back());
}

// The command of the name is about to be replaced. Its shortcut may have become another's.
void Tq4_app_obj::ForgetShortcut(const char *name) {
    const void *old = (*m_cmds)->PtrS(m_cmds.get(), name);
    if (!old) return;
    const char *shortcut = text_of(static_cast<const Tq4_app_cmd *>(old)->m_cmd_shortcut);
    if ((*m_cmd_shotcut)->LookupS(m_cmd_shotcut.get(), shortcut) == old)
        (*m_cmd_shotcut)->RemoveS(m_cmd_shotcut.get(), shortcut);
}

const Tq4_app_cmd *Tq4_app_obj::FindCmd(const char *word) const {
    return look_up<Tq4_app_cmd>(m_cmds, m_cmd_shotcut, word);
}

void Tq4_app_obj::Register(const char *name, void *object, Tq4_app_delete delete_object) {
    if (!object) return;
    const std::lock_guard guard(m_registry);
    const auto item = static_cast<Tq4_queue_item>(Tq4_queue_item_oitf->Create(nullptr));
    (*item)->Attach(item, new Registered{object, delete_object}, delete_registered);
    (*m_global_obj)->PutHead(m_global_obj.get(), item);
    if (name) (*m_obj_map)->SetAtS(m_obj_map.get(), object, name);
}

void *Tq4_app_obj::Find(const char *name) {
    const std::lock_guard guard(m_registry);
    return name ? (*m_obj_map)->LookupS(m_obj_map.get(), name) : nullptr;
}

void Tq4_app_obj::SetCharset(int gb18030) {
    m_charset = gb18030;
    Tq4_debug_api->Charset(gb18030);
}

void Tq4_app_obj::ChooseCharset(int gb18030) {
    m_charset_chosen = true;
    SetCharset(gb18030);
}

void Tq4_app_obj::PrintOptions() const {
    Tq4_debug_api->Printf(0, "        参数         [缩写] :  描述\n");
    for (const Tq4_app_arg &option : options)
        Tq4_debug_api->Printf(0, "%-20s [%-8s] : %s\n", option.m_arg_name, option.m_arg_shortcut, option.m_comment);
}

void Tq4_app_obj::PrintCommands() const {
    for (Listing listing : listings) {
        (*m_cmds)->each(m_cmds.get(), list_command, &listing);
        if (listing.begun) Tq4_debug_api->Printf(0, "\n");
    }
}

void Tq4_app_obj::PrintVersion() const {
    Tq4_debug_api->Printf(0, "%s    \n版本号:%s\n编译时间：%s\n作者:%s\n", m_name, text_of(m_version),
                          text_of(m_build_time), text_of(m_author));
}

// --- The arguments of Run. The first is the program's name ---

namespace {

bool names_option(const char *argument) { return argument[0] == '-' && argument[1]; }

} // namespace

bool Tq4_app_obj::ArgK(int *cursor, const char **name) const {
    if (!cursor || !name) return false;
    for (int at = std::max(*cursor, 1); at < m_argc; ++at)
        if (names_option(m_argv[at])) {
            *name = m_argv[at];
            *cursor = at + 1;
            return true;
        }
    return false;
}

bool Tq4_app_obj::ArgV(int *cursor, const char **value) const {
    if (!cursor || !value) return false;
    const int at = std::max(*cursor, 1);
    if (at >= m_argc || names_option(m_argv[at])) return false;
    *value = m_argv[at];
    *cursor = at + 1;
    return true;
}

// Whether each option of a family of the frame's, "--service=" or "--charset=", is one that there is. The others may be
// the program's own.
bool Tq4_app_obj::KnowsOptions() const {
    const char *name;
    for (int cursor = 0; ArgK(&cursor, &name);) {
        const std::string_view family(name, std::string_view(name).find('=') + 1);
        const auto is_of_it = [=](const Tq4_app_arg &option) {
            return !family.empty() && std::string_view(option.m_arg_name).starts_with(family);
        };
        if (std::none_of(std::begin(options), std::end(options), is_of_it)) continue;
        if (look_up<Tq4_app_arg>(m_arg_cmds, m_arg_shotcut, name)) continue;
        Tq4_debug_tell_error("不识别的参数%s，请用-h(--help)获取帮助\n", name);
        return false;
    }
    return true;
}

// The result of the first option that ends the run, or None. The others hold for it wherever they stand.
int Tq4_app_obj::ObeyOptions() const {
    for (const bool ending : {false, true}) {
        const char *name;
        for (int cursor = 0; ArgK(&cursor, &name);) {
            const auto *option = look_up<Tq4_app_arg>(m_arg_cmds, m_arg_shotcut, name);
            if (!option || option->m_ends != ending) continue;
            if (const int result = option->m_arg_handle(); ending) return result;
        }
    }
    return Tq4_app_arg::None;
}

namespace {

constexpr Tq4_app_ api_Tq4_app = {
    .SetInfo = [](const char *version, const char *build_time,
                  const char *author) { app().SetInfo(version, build_time, author); },
    .AddCmd = [](const char *name, const char *shortcut, Tq4_app_cmd_handle handler,
                 const char *comment) { app().AddCmd(name, shortcut, handler, comment, true, false); },
    .Run = [](int argc, char **argv, Tq4_app_start start,
              Tq4_app_stop stop) { return app().Run(argc, argv, start, stop); },
    .Register = [](const char *name, void *object,
                   Tq4_app_delete delete_object) { app().Register(name, object, delete_object); },
    .Find = [](const char *name) { return app().Find(name); },
    .ArgK = [](int *cursor, const char **name) { return static_cast<int>(app().ArgK(cursor, name)); },
    .ArgV = [](int *cursor, const char **value) { return static_cast<int>(app().ArgV(cursor, value)); },
    .AddServiceCmd = [](const char *name, const char *shortcut, Tq4_app_cmd_handle handler,
                        const char *comment) { app().AddCmd(name, shortcut, handler, comment, false, false); },
    .OnReload = [](Tq4_app_reload function) { app().m_reload = function; },
};

} // namespace

extern "C" constinit const Tq4_app_ *const Tq4_app = &api_Tq4_app;
