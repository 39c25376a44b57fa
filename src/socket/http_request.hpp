// http_request: the text of an HTTP/1.1 request.
#pragma once

#include "tq4/string.h"
#include "tq4/value_table.h"

// Whether a text can stand in a line of a request: it has neither CR nor LF.
bool Tq4_http_fits_line(const char *text);

// Appends header lines to out, one for each entry. False when one cannot be a header: a name or a value that does not
// fit a line, a key that is no text, a value that is neither text nor number.
bool Tq4_http_append_headers(Tq4_string out, Tq4_value_table headers);

// Replaces out by the whole request. headers are lines as appended above; body may be null.
void Tq4_http_make_request(Tq4_string out, const char *method, const char *url, const char *host, const char *headers,
                           Tq4_string body);
