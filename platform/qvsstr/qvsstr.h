// Splitting and parsing of text.
#pragma once

#include "qvxbase/qvbstring.h"

#include <cstddef>

// Splits `text` at `separator` into at most `maxFields` fields, whose zero-terminated copies are laid one
// after the other into `buffer`; `fields` receives their addresses. Inside a pair of `quote` characters a
// separator is text; a doubled quote inside them is one; the enclosing quotes are dropped. Result: the number
// of fields; -1, with `fields` untouched, when there are more than `maxFields` of them, when they do not fit
// into the buffer, or when a quote is not closed. The empty text is one empty field.
QVPLATFORM_API int qvs_parse_text_ex2(const char* text, char separator, char quote, char* buffer,
                                      std::size_t bufferSize, char** fields, int maxFields);

// Parses a date into its seven elements; false, with nothing written, for anything that is not one. Form 2,
// the only one, is ISO 8601: "2026-11-21T10:15:30.250", with "T" or a blank between date and time, seconds
// and fraction optional (digits beyond milliseconds are dropped), and "Z" or an offset ("+02:00", "+0200",
// "+02") accepted, which converts to local time. The date alone is midnight.
QVPLATFORM_API bool qvs_string_to_date_milli(const char* text, int* year, int* month, int* day, int* hour,
                                             int* minute, int* second, int* millisecond, int form);
