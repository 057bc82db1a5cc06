// The reader that the environment names as READER, for libFuzzer.
#include <cstdlib>

#include "fuzz/Reader.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const fuzz::Reader reader = fuzz::readerNamed(std::getenv("READER"));
  reader({reinterpret_cast<const std::byte*>(data), size});
  return 0;
}
