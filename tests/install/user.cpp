// A C++ program over the installed library: an object lives, does something and is compared with its duplicate.
#include <cstring>

#include <tq4/tq4.h>

int main() {
    auto s = static_cast<Tq4_string>(Tq4_string_oitf->Create("text"));
    (*(*s)->Strcat(s, " and more"))->Upper(s);
    void *duplicate = Tq4_object_Dup(s);
    const bool works = std::strcmp((*s)->c_str(s), "TEXT AND MORE") == 0 && Tq4_object_Equal(s, duplicate);
    Tq4_cxx_support->delete_obj(duplicate);
    Tq4_string_oitf->Delete(s);
    return works ? 0 : 1;
}
