// How the platform's values show in a failed expectation.
#pragma once

#include "qvxbase/qvbstring.h"

#include <ostream>
#include <string>

inline std::ostream& operator<<(std::ostream& out, const QvbString& text) {
  return text.isNull() ? out << "(null)" : out << '"' << text.view() << '"';
}

inline std::string str(const QvbString& text) { return std::string(text.view()); }
inline QvbString text(const std::string& bytes) { return QvbString(std::string_view(bytes)); }

// Empty, and not null.
inline bool isEmptyText(const QvbString& text) { return text.isEmpty() && !text.isNull(); }
