#pragma once

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace vantamo::fuzz {

/// What a target checks of one input. Defined by each target.
void check(std::string_view input);

/// Ends the program, as a finding, when a promise is broken.
void require(bool kept, const char* promise);

/// A folder of this program's own, empty at its start; caches are kept in it too.
const std::filesystem::path& scratchFolder();
void writeFile(const std::filesystem::path& path, std::string_view content);
[[nodiscard]] std::string readFile(const std::filesystem::path& path);

/// What `text` holds by the JSON library alone. Discarded when it is no JSON, or nested more deeply
/// than this library takes.
[[nodiscard]] nlohmann::json plainJson(std::string_view text);

/// The characters of `text`, each ill-formed sequence, with all of its trailing bytes, as one
/// U+FFFD.
[[nodiscard]] std::u32string charactersOf(std::string_view text);

}  // namespace vantamo::fuzz
