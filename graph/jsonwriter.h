// JSON written in the order of the calls.
#pragma once

#include "qvlineagegraph/graph.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace qvlineagegraph {

// Appends the text with its quotation marks; U+FFFD for bytes that are not UTF-8.
void appendJsonString(std::string& out, std::string_view text);

// Appends values to a text: on one line, or with a line for each member and element. Between the braces or brackets of a
// value stands what its content writes; in an object each value follows its name.
//   json.object([&] {
//     json.name("kind").text("ODBC");
//     json.name("files").array([&] { ... });
//   });
class JsonWriter {
public:
  enum class Layout { Line, Indented };

  JsonWriter(std::string& out, Layout layout) : m_out(out), m_layout(layout) {}

  template<class Content>
  void object(const Content& content) {
    enclose('{', '}', content);
  }
  template<class Content>
  void array(const Content& content) {
    enclose('[', ']', content);
  }
  JsonWriter& name(std::string_view name);
  void text(std::string_view text);
  void truth(bool truth);

private:
  template<class Content>
  void enclose(char begin, char end, const Content& content) {
    beginValue();
    m_out += begin;
    ++m_depth;
    m_isFirst = true;
    content();
    --m_depth;
    if (!m_isFirst)
      beginLine();
    m_out += end;
    m_isFirst = false;
  }
  void beginValue();
  void beginLine();

  std::string& m_out;
  Layout m_layout;
  std::size_t m_depth = 0;
  bool m_isFirst = true; // within what encloses it
  bool m_isNamed = false;
};

// What tells a node from all others: the members type, name and identity, or an object of these.
void writeNodeMembers(JsonWriter& json, const Node& node);
void writeNodeRecord(JsonWriter& json, const Node& node);

} // namespace qvlineagegraph
