// A saved graph taken apart as it is read: its large arrays come in batches, so that a document is never in memory as a
// whole.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace qvlineagegraph {

// What a text in UTF-8 may begin with.
inline constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";

// Fills up to so many bytes; less than asked for only at the end.
using ByteSource = std::function<std::size_t(char* bytes, std::size_t count)>;

// Finds where the members of the outermost object, and the elements of arrays in it, begin and end. That what lies in
// between is JSON is for its reader to tell.
class JsonSplitter {
public:
  // One member that is no array, or a batch of the elements of one that is: `value` is the member's value, or an array of
  // the batch. It is followed by room for as many bytes as the reader of JSON looks ahead. False ends the reading.
  using Taker = std::function<bool(std::string_view name, std::string_view value)>;

  JsonSplitter(ByteSource source, std::size_t lookAhead);

  // False when the outermost value is no object, is not closed or is followed by more, with where in failure(), and when
  // the taker said so, without.
  bool run(const Taker& take);
  // Empty, or what is wrong and at which byte.
  const std::string& failure() const noexcept { return m_failure; }

  // Where in a value a byte stands.
  struct Place {
    std::size_t depth = 0;
    bool isText = false;
    bool isEscaped = false;
  };

private:
  void skipByteOrderMark();
  int peek(); // the next byte that is no white space, or -1
  int next(); // and takes it
  bool fail(std::string_view expected);
  bool readMember(const Taker& take);
  bool readName(std::string& name);
  bool readArray(const Taker& take, std::string_view name);
  bool give(const Taker& take, std::string_view name, std::string& value) const;
  // Appends one value, up to the comma, colon or bracket after it.
  bool readValue(std::string& value);
  bool moveToEnd(Place& place);
  bool refill();

  ByteSource m_source;
  std::size_t m_lookAhead;
  std::string m_buffer;
  std::size_t m_at = 0;
  std::size_t m_end = 0;
  std::size_t m_before = 0; // bytes of the buffers before this one
  std::string m_failure;
};

} // namespace qvlineagegraph
