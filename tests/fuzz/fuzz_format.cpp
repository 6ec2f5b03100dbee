// Any format: nothing is read that was not passed. A conversion that the C library knows gives what it gives there.
#include "fuzz.h"
#include "qvxbase/qvbformat.h"

#include <cstring>

namespace {

// The next byte of the input, 0 after its end.
class Bytes {
public:
  Bytes(const std::uint8_t* data, std::size_t size) : m_data(data), m_size(size) {}
  unsigned next() { return m_at < m_size ? m_data[m_at++] : 0; }
  template<class T>
  T value() {
    unsigned char bytes[sizeof(T)];
    for (auto& byte : bytes)
      byte = static_cast<unsigned char>(next());
    T made;
    std::memcpy(&made, bytes, sizeof made);
    return made;
  }

private:
  const std::uint8_t* m_data;
  std::size_t m_size;
  std::size_t m_at = 0;
};

// A conversion with flags, width and precision, as the C library takes it with this length modifier.
std::string conversion(Bytes& bytes, const char* kinds, const char* modifier) {
  std::string made = "%";
  for (const char flag : std::string_view("-+ #0"))
    if (bytes.next() % 3 == 0)
      made += flag;
  if (bytes.next() % 2)
    made += std::to_string(1 + bytes.next() % 80);
  if (bytes.next() % 2)
    made += "." + std::to_string(bytes.next() % 40);
  return made + modifier + kinds[bytes.next() % std::strlen(kinds)];
}

template<class T>
void checkAgainstTheCLibrary(const std::string& format, T value) {
  char expected[1024];
  const int length = std::snprintf(expected, sizeof expected, format.c_str(), value);
  require(length >= 0 && static_cast<std::size_t>(length) < sizeof expected);
  require(qvbStringFormat(format.c_str(), value).view() ==
          std::string_view(expected, static_cast<std::size_t>(length)));
}

// What C leaves open: "#" with d, i and u, "0" with s.
bool isDefined(const std::string& format) {
  const char kind = format.back();
  return !(format.find('#') != std::string::npos && std::strchr("diu", kind));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const QvbString format = textOf(data, size);
  const QvbString text("text");
  const QvbString made =
      qvbStringFormat(format.asCstr(), -7, 2.5, &text, "more", static_cast<const void*>(data));
  if (std::strchr(format.asCstr(), '%') == nullptr)
    require(made.view() == std::string_view(format.asCstr()));

  Bytes bytes(data, size);
  const auto number = bytes.value<std::int32_t>();
  if (const std::string whole = conversion(bytes, "di", ""); isDefined(whole))
    checkAgainstTheCLibrary(whole, number);
  if (const std::string whole = conversion(bytes, "uoxX", ""); isDefined(whole))
    checkAgainstTheCLibrary(whole, static_cast<std::uint32_t>(number));
  const auto wide = bytes.value<std::int64_t>();
  if (const std::string whole = conversion(bytes, "di", "l"); isDefined(whole))
    checkAgainstTheCLibrary(whole, wide);
  checkAgainstTheCLibrary(conversion(bytes, "eEgG", ""), bytes.value<double>());
  checkAgainstTheCLibrary(conversion(bytes, "f", ""), static_cast<double>(number) / 64);
  return 0;
}
