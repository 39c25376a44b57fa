/* zip.h: Tq4_zip, raw deflate and inflate streams that append to a string.
 *
 * An object holds one compressing and one decompressing stream, usable independently: start, feed in pieces, end. The
 * streams have no zlib or gzip header and no checksum. The output strings are borrowed: they must live until the stream
 * ends. The bytes fed must not lie in the output string.
 *
 * Create ignores its parameter. Reset ends both streams and forgets both strings. Copy does nothing, Equal is identity,
 * Dup gives an idle object. Null handles give 0. Threads: an object belongs to one thread at a time.
 */
#ifndef TQ4_ZIP_H
#define TQ4_ZIP_H

#include "tq4/string.h"

TQ4_BEGIN_DECLS

typedef struct Tq4_zip_ Tq4_zip_;
typedef const Tq4_zip_ **Tq4_zip; /* handle */

struct Tq4_zip_ {
    /* Begins to compress into out, at level 9, ending a stream that was open. Returns zlib's result: 0 (Z_OK), or an
     * error such as Z_STREAM_ERROR for a null out. */
    int (*zip_start)(Tq4_zip z, Tq4_string out);
    /* Feeds len bytes, up to the NUL when len is negative. Every 1024 bytes of input or so the output is flushed, so
     * that it can be decompressed from there on. Returns the length of the output string; 0 when no stream was started.
     */
    long (*zip)(Tq4_zip z, const void *bytes, long len);
    /* Finishes the compressed stream and ends it. */
    void (*zip_end)(Tq4_zip z);
    /* Begins to decompress into out, ending a stream that was open. Results as for zip_start. */
    int (*unzip_start)(Tq4_zip z, Tq4_string out);
    /* Feeds len compressed bytes, none when len is negative. Damaged input ends the feed and keeps what came
     * out. Returns the length of the output string; 0 when no stream was started. */
    long (*unzip)(Tq4_zip z, const void *bytes, long len);
    /* Ends the decompressing stream. */
    void (*unzip_end)(Tq4_zip z);
};

extern TQ4_API const Tq4_object_itf *const Tq4_zip_oitf;

TQ4_END_DECLS

#endif
