#include "jsonwriter.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <utility>

namespace qvlineagegraph {

namespace {

// What is not ASCII may be no UTF-8, and is looked at more closely.
bool standsForItself(char byte) {
  const auto code = static_cast<unsigned char>(byte);
  return code >= 0x20 && code < 0x80 && byte != '"' && byte != '\\';
}

} // namespace

void appendJsonString(std::string& out, std::string_view text) {
  if (std::ranges::all_of(text, standsForItself))
    out.append(1, '"').append(text) += '"';
  else
    out += nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

JsonWriter& JsonWriter::name(std::string_view name) {
  text(name);
  m_out += m_layout == Layout::Line ? ":" : ": ";
  m_isNamed = true;
  return *this;
}

void JsonWriter::text(std::string_view text) {
  beginValue();
  appendJsonString(m_out, text);
}

void JsonWriter::truth(bool truth) {
  beginValue();
  m_out += truth ? "true" : "false";
}

void JsonWriter::beginValue() {
  if (std::exchange(m_isNamed, false) || m_depth == 0)
    return;
  if (!std::exchange(m_isFirst, false))
    m_out += ',';
  beginLine();
}

void JsonWriter::beginLine() {
  if (m_layout == Layout::Indented)
    m_out.append(1, '\n').append(2 * m_depth, ' ');
}

void writeNodeMembers(JsonWriter& json, const Node& node) {
  json.name("type").text(nameOf(node.type));
  json.name("name").text(node.name);
  json.name("identity").text(node.identity);
}

void writeNodeRecord(JsonWriter& json, const Node& node) {
  json.object([&] { writeNodeMembers(json, node); });
}

} // namespace qvlineagegraph
