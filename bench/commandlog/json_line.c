#include "json_line.h"

#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static int reserve(struct json_line* line, size_t more)
{
    if (line->failed)
        return -1;
    if (line->length + more + 1 <= line->capacity)
        return 0;
    size_t capacity = (line->length + more + 1) * 2;
    char* data = realloc(line->data, capacity);
    if (!data) {
        line->failed = 1;
        return -1;
    }
    line->data = data;
    line->capacity = capacity;
    return 0;
}

static void append(struct json_line* line, const char* bytes, size_t count)
{
    if (reserve(line, count) != 0)
        return;
    memcpy(line->data + line->length, bytes, count);
    line->length += count;
    line->data[line->length] = '\0';
}

void json_line_raw(struct json_line* line, const char* text)
{
    append(line, text, strlen(text));
}

void json_line_format(struct json_line* line, const char* format, ...)
{
    char text[160];
    va_list arguments;
    va_start(arguments, format);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the analyzer does not see what va_start did
    int count = vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    if (count > 0)
        append(line, text, (size_t)count < sizeof text ? (size_t)count : sizeof text - 1);
}

static int is_continuation(unsigned char byte)
{
    return (byte & 0xC0) == 0x80;
}

/** Length of the well-formed UTF-8 sequence at `s` (RFC 3629, table of section 4), 0 when there is none. */
static size_t utf8_length(const unsigned char* s)
{
    if (s[0] >= 0xC2 && s[0] <= 0xDF)
        return is_continuation(s[1]) ? 2 : 0;
    if (s[0] >= 0xE0 && s[0] <= 0xEF) {
        unsigned char low = s[0] == 0xE0 ? 0xA0 : 0x80;
        unsigned char high = s[0] == 0xED ? 0x9F : 0xBF; // no surrogates
        return s[1] >= low && s[1] <= high && is_continuation(s[2]) ? 3 : 0;
    }
    if (s[0] >= 0xF0 && s[0] <= 0xF4) {
        unsigned char low = s[0] == 0xF0 ? 0x90 : 0x80;
        unsigned char high = s[0] == 0xF4 ? 0x8F : 0xBF; // nothing above U+10FFFF
        return s[1] >= low && s[1] <= high && is_continuation(s[2]) && is_continuation(s[3]) ? 4 : 0;
    }
    return 0;
}

void json_line_string(struct json_line* line, const char* text)
{
    append(line, "\"", 1);
    for (const unsigned char* s = (const unsigned char*)text; *s;) {
        size_t length = 1;
        if (*s == '"' || *s == '\\') {
            json_line_format(line, "\\%c", *s);
        } else if (*s < 0x20 || *s == 0x7F) {
            json_line_format(line, "\\u%04x", *s);
        } else if (*s < 0x80) {
            append(line, (const char*)s, 1);
        } else if ((length = utf8_length(s)) > 0) {
            append(line, (const char*)s, length);
        } else {
            length = 1;
            json_line_format(line, "\\udc%02x", *s);
        }
        s += length;
    }
    append(line, "\"", 1);
}

int json_line_append_to(struct json_line* line, const char* path)
{
    append(line, "\n", 1);
    if (line->failed)
        return -1;
    int fd = open(path, O_WRONLY | O_APPEND | O_CLOEXEC);
    if (fd < 0)
        return -1;
    ssize_t written = write(fd, line->data, line->length);
    close(fd);
    return written == (ssize_t)line->length ? 0 : -1;
}

void json_line_free(struct json_line* line)
{
    free(line->data);
    line->data = NULL;
    line->length = line->capacity = 0;
}
