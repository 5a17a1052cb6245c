#include "fuzz/fuzz.h"

#include <array>
#include <bit>
#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "platform/random.h"
#include "vantamo/platform.h"

namespace vantamo::fuzz {
namespace {

namespace fs = std::filesystem;

struct Scratch {
  Scratch() {
    fs::create_directories(path);
    PlatformOverrides overrides;
    overrides.cachesDirectory = path.string();
    overrides.systemVersion = "1";
    setPlatformOverrides(overrides);
  }
  ~Scratch() { fs::remove_all(path); }

  const fs::path path = fs::temp_directory_path() / ("vantamo-fuzz-" + platform::randomUuid());
};

}  // namespace

void require(bool kept, const char* promise) {
  if (kept) return;
  std::fprintf(stderr, "broken promise: %s\n", promise);
  std::abort();
}

const fs::path& scratchFolder() {
  static const Scratch scratch;
  return scratch.path;
}

void writeFile(const fs::path& path, std::string_view content) { std::ofstream(path) << content; }

std::string readFile(const fs::path& path) {
  std::ifstream stream(path);
  return {std::istreambuf_iterator<char>(stream), {}};
}

nlohmann::json plainJson(std::string_view text) {
  bool tooDeep = false;
  const auto watchDepth = [&tooDeep](int depth, auto event, const auto& /*parsed*/) {
    using Event = nlohmann::json::parse_event_t;
    tooDeep =
        tooDeep || ((event == Event::array_start || event == Event::object_start) && depth >= 512);
    return true;
  };
  nlohmann::json parsed = nlohmann::json::parse(text, watchDepth, false);
  if (tooDeep) return nlohmann::json::value_t::discarded;
  return parsed;
}

std::u32string charactersOf(std::string_view text) {
  constexpr std::array<char32_t, 5> least = {0, 0, 0x80, 0x800, 0x10000};
  std::u32string characters;
  while (!text.empty()) {
    const auto lead = static_cast<unsigned char>(text[0]);
    const auto ones = static_cast<std::size_t>(std::countl_one(lead));
    const std::size_t length = ones == 0 ? 1 : ones >= 2 && ones <= 4 ? ones : 0;
    std::size_t trails = 0;
    while (trails + 1 < text.size() && (text[trails + 1] & 0xC0) == 0x80) ++trails;
    char32_t character = lead & (0x7FU >> ones);
    for (std::size_t i = 1; i < length && i <= trails; ++i) {
      character = character << 6U | (static_cast<unsigned char>(text[i]) & 0x3FU);
    }
    const bool whole = length != 0 && trails + 1 >= length && character >= least[length] &&
                       character <= 0x10FFFF && (character < 0xD800 || character > 0xDFFF);
    characters += whole ? character : U'\uFFFD';
    text.remove_prefix(whole ? length : length < 2 ? 1 : trails + 1);
  }
  return characters;
}

}  // namespace vantamo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  vantamo::fuzz::scratchFolder();
  vantamo::fuzz::check({reinterpret_cast<const char*>(data), size});
  return 0;
}
