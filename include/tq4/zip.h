/* zip.h: Tq4_zip, raw deflate and inflate streams that append to a string. */
#ifndef TQ4_ZIP_H
#define TQ4_ZIP_H

#include "tq4/string.h"

TQ4_BEGIN_DECLS

typedef struct Tq4_zip_ Tq4_zip_;
typedef const Tq4_zip_ **Tq4_zip; /* handle */

struct Tq4_zip_ {
    int (*zip_start)(Tq4_zip z, Tq4_string out);
    long (*zip)(Tq4_zip z, const void *bytes, long len);
    void (*zip_end)(Tq4_zip z);
    int (*unzip_start)(Tq4_zip z, Tq4_string out);
    long (*unzip)(Tq4_zip z, const void *bytes, long len);
    void (*unzip_end)(Tq4_zip z);
};

extern TQ4_API const Tq4_object_itf *const Tq4_zip_oitf;

TQ4_END_DECLS

#endif
