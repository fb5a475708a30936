// A growing text buffer that takes one JSON object, for a log to which several processes append.
#pragma once

#include <stddef.h>

/** Text under construction. Start from `{0}`; `data` belongs to the line and is given back by json_line_free.
 */
struct json_line
{
    char* data;
    size_t length;
    size_t capacity;
    int failed; /**< set once memory ran out: the line is then not to be written */
};

/** Appends `text` as it stands (punctuation, numbers, keys). */
void json_line_raw(struct json_line* line, const char* text);

/** Appends printf-style text; for numbers. */
__attribute__((format(printf, 2, 3))) void json_line_format(struct json_line* line, const char* format, ...);

/**
 * Appends a JSON string (RFC 8259) that holds any bytes: well-formed UTF-8 stands as it is, control
 * characters are escaped, and any other byte becomes the lone surrogate \udc80..\udcff, from which Python's
 * "surrogateescape" and similar readers get the byte back.
 */
void json_line_string(struct json_line* line, const char* text);

/** Appends the line to `path` with one write, so that lines of several processes never mix. 0, or -1 with
 * errno. */
int json_line_append_to(struct json_line* line, const char* path);

void json_line_free(struct json_line* line);
