#include <stdio.h>
#include <time.h>
#include <tq4/tq4.h>

int main(void) {
    Tq4_string s = Tq4_string_oitf->Create("你好, ");
    Tq4_string gb = Tq4_string_oitf->Create(NULL);

    (*s)->Sprintf_append(s, "%s! It is ", "world");
    (*s)->Append_FormatDate(s, time(NULL), "YYYY-MM-DD HH:mi");
    long bytes = (*gb)->utf8_2_gb18030(gb, (*s)->c_str(s), TQ4_ALL_ONES);
    printf("%s\n%ld bytes in UTF-8, %ld in GB18030\n", (*s)->c_str(s), (*s)->length(s), bytes);

    Tq4_string_oitf->Delete(gb);
    Tq4_string_oitf->Delete(s);
    return 0;
}
