// http_request: the text of an HTTP/1.1 request.
#pragma once

#include "tq4/string.h"
#include "tq4/value_table.h"

// All borrowed; headers and body may be null.
struct Tq4_http_wanted {
    const char *method, *url, *host;
    Tq4_value_table headers;
    Tq4_string body;
};

// Replaces out by the whole request, which has a body when that is not empty. False when something does not fit where
// it belongs: no method or url, a method, url, host, name or value with CR, LF or NUL, a header whose key is no text,
// or whose value is neither text nor number.
bool Tq4_http_make_request(Tq4_string out, const Tq4_http_wanted &wanted);
