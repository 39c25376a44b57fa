// config: a tree of settings with a cursor, read from a file and written to one.
//
// The tree is ini/tree.hpp's, the engines between text and tree are ini/reader.hpp and ini/writer.hpp; here are the
// files, the cursor and the values. The cursor is a section and the text of its path, which is kept as it was given:
// moving down appends a part to it, moving up cuts one off. Texts given may lie in this very configuration.
#include <algorithm>
#include <cerrno>
#include <charconv>
#include <memory>
#include <string>

#include "base/print.hpp"
#include "base/string/string.hpp"
#include "file/ini/number.hpp"
#include "file/ini/reader.hpp"
#include "file/ini/save.hpp"
#include "file/ini/tree.hpp"
#include "file/ini/writer.hpp"
#include "module.hpp"
#include "platform/multi_platform_fs.hpp"
#include "tq4/config.h"
#include "tq4/debug.h"

struct Tq4_config_obj {
    std::unique_ptr<Tq4_config_tree> m_tree = std::make_unique<Tq4_config_tree>();
    std::string m_skey;                                // the path of the current section
    std::string m_filename;                            // last read
    Tq4_config_section *m_psection = &m_tree->root();  // borrowed; the current section
    const Tq4_config_section *m_iterated = m_psection; // borrowed, compared only; where GetFirstKey was called
    int m_index = -1;                                  // of the key that GetFirstKey or GetNextKey gave last

    void Reset();
    void Copy(const Tq4_config_obj *source);
    bool Equal(const Tq4_config_obj &other) const;

    int Read(const char *file);
    bool Dump(const char *file) const;
    const char *FileName() const { return m_filename.c_str(); }

    const char *VSetSection(const char *format, va_list args);
    const char *SetPath(std::string_view path);
    const char *GetSection() const { return m_skey.c_str(); }
    int GetChildSectionCount(const char *name) const;
    const char *GetChildSectionName(unsigned long index) const;
    int GetKVCount() const { return static_cast<int>(m_psection->m_values.size()); }
    const char *GetFirstKey();
    const char *GetNextKey();
    void RemoveSection();
    void RemoveChildSection(const char *name, unsigned long index);
    const char *ToChildSection(const char *name, unsigned long index);
    void ToParentSection();
    void ToTopSection();
    void RemoveKey(const char *key);
    void AddSection(const char *name);

    int ReadChar(const char *key, char *value) const;
    template <class Integer> int ReadInteger(const char *key, Integer *value) const;
    template <class Float> int ReadFloat(const char *key, Float *value) const;
    int ReadBytes(const char *key, void *buffer, unsigned long size) const;
    const char *ReadString(const char *key, const char *missing) const;
    int WriteChar(const char *key, char value) { return Write(key, Tq4_config_char_text(value)); }
    template <class Integer> int WriteInteger(const char *key, Integer value, int hex) {
        return Write(key, Tq4_config_integer_text(value, hex != 0));
    }
    template <class Float> int WriteFloat(const char *key, Float value) {
        return Write(key, Tq4_config_float_text(value));
    }
    int WriteString(const char *key, const char *value) { return Write(key, value ? value : ""); }

private:
    const Tq4_config_item *Find(const char *key) const { return key ? m_psection->Item(key) : nullptr; }
    template <class T, class Convert> int ReadAs(const char *key, T *value, Convert convert) const;
    bool Write(const char *key, std::string_view value);
    void Take(std::unique_ptr<Tq4_config_tree> tree);
};

namespace {

// The section of a name and an index in another; null when missing.
Tq4_config_section *child_of(const Tq4_config_section &parent, std::string_view name, unsigned long index) {
    const Tq4_config_chain *chain = parent.Chain(name);
    return chain && index < chain->m_sections.size() ? chain->m_sections[index] : nullptr;
}

// The section that a part of a path names: "name" or "name[index]". Brackets without a number in them belong to the
// name.
Tq4_config_section *child_of(const Tq4_config_section &parent, std::string_view part) {
    const std::size_t bracket = part.ends_with(']') ? part.rfind('[') : part.npos;
    if (bracket == part.npos) return child_of(parent, part, 0);
    unsigned long index = 0;
    const char *const first = part.data() + bracket + 1, *const last = part.data() + part.size() - 1;
    const auto [stop, error] = std::from_chars(first, last, index);
    if (stop != last || first == last) return child_of(parent, part, 0);
    return error == std::errc() ? child_of(parent, part.substr(0, bracket), index) : nullptr;
}

// The part of a path that leads to a section.
std::string part_of(std::string_view name, unsigned long index) {
    std::string part(name);
    if (index) part += '[' + std::to_string(index) + ']';
    return part;
}

// The tree of an open file; null when reading fails. A line that is left out is told, but for the first one only.
std::unique_ptr<Tq4_config_tree> read_tree(const char *file, int descriptor) {
    auto tree = std::make_unique<Tq4_config_tree>();
    Tq4_config_reader reader(*tree);
    for (;;) {
        std::size_t room;
        char *at = reader.Room(&room);
        const long n = MP_FileRead(descriptor, at, room);
        if (n < 0) return nullptr;
        if (n == 0) break;
        reader.Filled(static_cast<std::size_t>(n));
    }
    reader.Finish();
    if (const unsigned long line = reader.FirstSkipped())
        Tq4_debug_api->log(0, "Tq4_config_Read skipped %lu lines longer than %lu bytes,file = %s,first line = %lu\n",
                           reader.Skipped(), Tq4_config_line_limit, file, line);
    return tree;
}

} // namespace

// ---- the whole

void Tq4_config_obj::Take(std::unique_ptr<Tq4_config_tree> tree) {
    m_tree = std::move(tree);
    m_index = -1;
    ToTopSection();
}

void Tq4_config_obj::Reset() {
    Take(std::make_unique<Tq4_config_tree>());
    m_filename.clear();
}

// Through the text, which holds all there is.
void Tq4_config_obj::Copy(const Tq4_config_obj *source) {
    if (source == this) return;
    Reset();
    if (!source) return;
    m_filename = source->m_filename;
    Tq4_config_reader reader(*m_tree);
    reader.Feed(Tq4_config_written(*source->m_tree));
    reader.Finish();
}

bool Tq4_config_obj::Equal(const Tq4_config_obj &other) const {
    return Tq4_config_written(*m_tree) == Tq4_config_written(*other.m_tree);
}

int Tq4_config_obj::Read(const char *file) {
    const int descriptor = MP_SafeOpen(file, O_RDONLY, 0);
    auto tree = descriptor < 0 ? nullptr : read_tree(file, descriptor);
    if (descriptor >= 0) MP_FileClose(descriptor);
    if (!tree) {
        ToTopSection();
        return -1;
    }
    m_filename = file; // before the old tree goes: it may lie there
    Take(std::move(tree));
    return 1;
}

bool Tq4_config_obj::Dump(const char *file) const { return file && Tq4_config_save(file, Tq4_config_written(*m_tree)); }

// ---- the cursor

const char *Tq4_config_obj::VSetSection(const char *format, va_list args) {
    if (!format) return SetPath({});
    if (!std::strchr(format, '%')) return SetPath(format);
    Tq4_text_aside path;
    Tq4_wbuf_print(path.buffer(), format, args);
    return SetPath({reinterpret_cast<const char *>(path.data()), path.size()});
}

const char *Tq4_config_obj::SetPath(std::string_view path) {
    m_psection = &m_tree->root();
    std::size_t reached = 0, from = 0;
    while (from <= path.size() && !path.empty()) {
        const std::size_t dot = std::min(path.find('.', from), path.size());
        Tq4_config_section *child = child_of(*m_psection, path.substr(from, dot - from));
        if (!child) {
            m_skey.assign(path.data(), reached);
            return nullptr;
        }
        m_psection = child;
        reached = dot;
        from = dot + 1;
    }
    m_skey.assign(path.data(), path.size()); // which may lie in m_skey
    return m_skey.c_str();
}

int Tq4_config_obj::GetChildSectionCount(const char *name) const {
    const Tq4_config_chain *chain = name ? m_psection->Chain(name) : nullptr;
    return chain ? static_cast<int>(chain->m_sections.size()) : 0;
}

const char *Tq4_config_obj::GetChildSectionName(unsigned long index) const {
    const Tq4_config_chain *chain = m_psection->m_childs.At(index);
    return chain ? chain->m_sections.front()->m_name.c_str() : nullptr;
}

const char *Tq4_config_obj::GetFirstKey() {
    m_iterated = m_psection;
    m_index = -1;
    return GetNextKey();
}

const char *Tq4_config_obj::GetNextKey() {
    m_index = std::min(m_index + 1, GetKVCount());
    const Tq4_config_item *item = m_psection->m_values.At(static_cast<std::size_t>(m_index));
    return item ? item->m_key.c_str() : nullptr;
}

void Tq4_config_obj::RemoveSection() {
    Tq4_config_section *section = m_psection;
    if (!section->m_parent) return;
    ToParentSection();
    m_tree->Remove(section);
}

void Tq4_config_obj::RemoveChildSection(const char *name, unsigned long index) {
    if (Tq4_config_section *child = name ? child_of(*m_psection, name, index) : nullptr) m_tree->Remove(child);
}

const char *Tq4_config_obj::ToChildSection(const char *name, unsigned long index) {
    Tq4_config_section *child = name ? child_of(*m_psection, name, index) : nullptr;
    if (!child) return nullptr;
    if (!m_skey.empty()) m_skey += '.'; // deliberate: a first section without a name leaves nothing in the path
    m_skey += part_of(child->m_name.view(), index);
    m_psection = child;
    return m_skey.c_str();
}

void Tq4_config_obj::ToParentSection() {
    if (!m_psection->m_parent) return;
    // The last part of the path goes. A name that holds a dot came there by ToChildSection.
    const std::string_view name = m_psection->m_name.view();
    std::size_t part = m_skey.rfind('.') + 1; // 0 without a dot
    if (name.find('.') != name.npos) part = m_skey.size() - part_of(name, m_psection->Index()).size();
    m_skey.resize(part ? part - 1 : 0);
    m_psection = m_psection->m_parent;
}

void Tq4_config_obj::ToTopSection() {
    m_psection = &m_tree->root();
    m_skey.clear();
}

void Tq4_config_obj::RemoveKey(const char *key) {
    Tq4_config_item *item = key ? m_psection->Item(key) : nullptr;
    if (!item) return;
    const std::size_t place = m_tree->Remove(*m_psection, item);
    if (m_iterated == m_psection && m_index >= 0 && place <= static_cast<std::size_t>(m_index)) --m_index;
}

void Tq4_config_obj::AddSection(const char *name) {
    if (name && Tq4_config_can_hold_name(name, !m_psection->m_parent))
        m_tree->AddSection(*m_psection, Tq4_config_text::Owned(name));
    else
        Tq4_debug_api->log(0, "Tq4_config_AddSection failed,name = %s\n", name ? name : "");
}

// ---- values

template <class T, class Convert> int Tq4_config_obj::ReadAs(const char *key, T *value, Convert convert) const {
    const Tq4_config_item *item = Find(key);
    if (item && value) *value = convert(item->m_value.view());
    return item != nullptr;
}

int Tq4_config_obj::ReadChar(const char *key, char *value) const { return ReadAs(key, value, Tq4_config_char); }

template <class Integer> int Tq4_config_obj::ReadInteger(const char *key, Integer *value) const {
    return ReadAs(key, value, Tq4_config_integer<Integer>);
}

template <class Float> int Tq4_config_obj::ReadFloat(const char *key, Float *value) const {
    return ReadAs(key, value, Tq4_config_float<Float>);
}

// Deliberate: the NUL takes the place of the last byte copied, also where there would be room behind it.
int Tq4_config_obj::ReadBytes(const char *key, void *buffer, unsigned long size) const {
    const Tq4_config_item *item = Find(key);
    if (!item) return 0;
    const std::size_t n = std::min<std::size_t>(size, item->m_value.view().size());
    if (n == 0 || !buffer) return 1;
    std::memcpy(buffer, item->m_value.c_str(), n - 1);
    static_cast<char *>(buffer)[n - 1] = 0;
    return 1;
}

const char *Tq4_config_obj::ReadString(const char *key, const char *missing) const {
    const Tq4_config_item *item = Find(key);
    return item ? item->m_value.c_str() : missing;
}

bool Tq4_config_obj::Write(const char *key, std::string_view value) {
    if (!key) return false;
    const uint32_t hash = Tq4_config_hash(key);
    Tq4_config_item *item = m_psection->m_values.Find(key, hash);
    if (!Tq4_config_can_hold_value(key, value, item)) return false;
    if (!item) {
        if (!Tq4_config_can_hold_key(key)) return false;
        item = m_tree->AddItem(*m_psection, Tq4_config_text::Owned(key), hash);
    }
    item->m_quoted = item->m_quoted || Tq4_config_needs_quotes(value);
    item->m_value = Tq4_config_text::Owned(value);
    return true;
}

static const char *Tq4_config_itf_SetSection(Tq4_config s, const char *format, ...) {
    if (!s) return nullptr;
    va_list args;
    va_start(args, format);
    const char *path = Tq4_record<Tq4_config_obj>(s)->VSetSection(format, args);
    va_end(args);
    return path;
}

using Config = Tq4_config_obj;

const Tq4_config_ Tq4_config_itf = {
    .Read = Tq4_op<&Config::Read>,
    .Dump = Tq4_op<&Config::Dump>,
    .FileName = Tq4_op<&Config::FileName>,
    .SetSection = Tq4_config_itf_SetSection,
    .VSetSection = Tq4_op<&Config::VSetSection>,
    .GetSection = Tq4_op<&Config::GetSection>,
    .GetChildSectionCount = Tq4_op<&Config::GetChildSectionCount>,
    .GetChildSectionName = Tq4_op<&Config::GetChildSectionName>,
    .GetKVCount = Tq4_op<&Config::GetKVCount>,
    .GetFirstKey = Tq4_op<&Config::GetFirstKey>,
    .GetNextKey = Tq4_op<&Config::GetNextKey>,
    .RemoveSection = Tq4_op<&Config::RemoveSection>,
    .RemoveChildSection = Tq4_op<&Config::RemoveChildSection>,
    .ToChildSection = Tq4_op<&Config::ToChildSection>,
    .ToParentSection = Tq4_op<&Config::ToParentSection>,
    .ToTopSection = Tq4_op<&Config::ToTopSection>,
    .RemoveKey = Tq4_op<&Config::RemoveKey>,
    .AddSection = Tq4_op<&Config::AddSection>,
    .ReadChar = Tq4_op<&Config::ReadChar>,
    .ReadShort = Tq4_op<&Config::ReadInteger<short>>,
    .ReadInt = Tq4_op<&Config::ReadInteger<int>>,
    .ReadLong = Tq4_op<&Config::ReadInteger<long>>,
    .ReadFloat = Tq4_op<&Config::ReadFloat<float>>,
    .ReadDouble = Tq4_op<&Config::ReadFloat<double>>,
    .ReadBytes = Tq4_op<&Config::ReadBytes>,
    .ReadUChar = Tq4_op<&Config::ReadInteger<unsigned char>>,
    .ReadUShort = Tq4_op<&Config::ReadInteger<unsigned short>>,
    .ReadUInt = Tq4_op<&Config::ReadInteger<unsigned>>,
    .ReadULong = Tq4_op<&Config::ReadInteger<unsigned long>>,
    .ReadString = Tq4_op<&Config::ReadString>,
    .WriteChar = Tq4_op<&Config::WriteChar>,
    .WriteShort = Tq4_op<&Config::WriteInteger<short>>,
    .WriteInt = Tq4_op<&Config::WriteInteger<int>>,
    .WriteLong = Tq4_op<&Config::WriteInteger<long>>,
    .WriteFloat = Tq4_op<&Config::WriteFloat<float>>,
    .WriteDouble = Tq4_op<&Config::WriteFloat<double>>,
    .WriteString = Tq4_op<&Config::WriteString>,
    .WriteUChar = Tq4_op<&Config::WriteInteger<unsigned char>>,
    .WriteUShort = Tq4_op<&Config::WriteInteger<unsigned short>>,
    .WriteUInt = Tq4_op<&Config::WriteInteger<unsigned>>,
    .WriteULong = Tq4_op<&Config::WriteInteger<unsigned long>>,
};
TQ4_MODULE(config)
