// Any file as the option file: it is read to its end. A value that is written into one is the option's value.
#include "fuzz.h"
#include "qvxbase/qvbconfig.h"

#include <algorithm>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // A file is read again when its name is another one.
  static const FuzzFile files[] = {FuzzFile("options1"), FuzzFile("options2")};
  qvbSetConfigOption("LOG/LEVEL", "6");
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  files[0].write(bytes);
  ::setenv("QV_CONFIG", files[0].path().asCstr(), 1);
  costsAtMost(512, size, [] { qvbGetConfigOption("BASE/REPOS_SYS_PATH"); });

  std::string value;
  std::copy_if(bytes.begin(), bytes.end(), std::back_inserter(value),
               [](char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '/' || c == '_'; });
  files[1].write("[BASE]\nREPOS_SYS_PATH = " + value + "\n");
  ::setenv("QV_CONFIG", files[1].path().asCstr(), 1);
  require(qvbGetConfigOption("BASE/REPOS_SYS_PATH").view() == value);
  return 0;
}
