#pragma once

#include <cstddef>
#include <initializer_list>
#include <optional>
#include <ranges>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

// Some compilers can warn when a view outlives what it looks at.
#if defined(__clang__)
#define VANTAMO_LIFETIMEBOUND [[clang::lifetimebound]]
#else
#define VANTAMO_LIFETIMEBOUND
#endif

namespace vantamo {

/// A view of a string that may be absent. Absent and empty are different things: an absent argument
/// was left out by the host, an empty one was given.
///
///     Text a;                    // absent
///     Text b = nullptr;          // absent, as is a null const char*
///     Text c = "";               // present and empty
///     Text d = std::string("x"); // present; dies with the temporary at the end of the statement
///
/// A Text is meant for the duration of one call: it owns nothing, and what it looks at must outlive
/// it. Bytes are taken as UTF-8; ill-formed sequences are replaced by U+FFFD where a tag is built.
/// A `const char*` ends at its first NUL; the other sources keep embedded NULs.
class Text {
 public:
  constexpr Text() noexcept = default;
  constexpr Text(std::nullptr_t) noexcept {}  ///< Absent.
  constexpr Text(std::nullopt_t) noexcept {}  ///< Absent.
  /// Up to the first NUL; absent when the pointer is null.
  constexpr Text(const char* text VANTAMO_LIFETIMEBOUND) noexcept
      : view_(text == nullptr ? std::string_view{} : std::string_view{text}),
        present_(text != nullptr) {}
  /// Present, whatever it views.
  constexpr Text(std::string_view text) noexcept : view_(text), present_(true) {}
  /// Present.
  Text(const std::string& text VANTAMO_LIFETIMEBOUND) noexcept : view_(text), present_(true) {}
  /// Absent when the optional is.
  Text(const std::optional<std::string>& text VANTAMO_LIFETIMEBOUND) noexcept
      : view_(text ? std::string_view{*text} : std::string_view{}), present_(text.has_value()) {}

  /// False only for an absent text.
  [[nodiscard]] constexpr bool present() const noexcept { return present_; }
  /// The bytes; empty when absent.
  [[nodiscard]] constexpr std::string_view view() const noexcept { return view_; }
  /// True when absent or of length zero.
  [[nodiscard]] constexpr bool absentOrEmpty() const noexcept { return view_.empty(); }
  /// An owning copy that keeps the difference between absent and empty.
  [[nodiscard]] std::optional<std::string> copy() const {
    return present_ ? std::optional<std::string>(view_) : std::nullopt;
  }

 private:
  std::string_view view_;
  bool present_ = false;
};

/// A view of an ordered list of strings that may be absent; absent and empty are different things.
///
///     TextList a;                          // absent, as are nullptr and {}
///     TextList b = {"spring", "web"};      // a list of two
///     std::vector<std::string> none;
///     TextList c = none;                   // present and empty
///
/// Takes braces, any contiguous range of things a Text can be made from, and an optional vector of
/// strings. Like Text it owns nothing and is meant for the duration of one call. An entry that is
/// absent counts as an empty string.
class TextList {
 public:
  constexpr TextList() noexcept = default;
  constexpr TextList(std::nullptr_t) noexcept {}  ///< Absent.
  constexpr TextList(std::nullopt_t) noexcept {}  ///< Absent.
  /// Present, of what stands in the braces.
  constexpr TextList(std::initializer_list<Text> list VANTAMO_LIFETIMEBOUND) noexcept
      : data_(list.begin()), size_(list.size()), at_(&entryOf<Text>), present_(true) {}

  /// Present, of the range's entries.
  template <std::ranges::contiguous_range Range>
  requires(!std::is_same_v<Range, TextList> &&
           std::is_convertible_v<const std::ranges::range_value_t<Range>&, Text>)
      TextList(const Range& range VANTAMO_LIFETIMEBOUND)
  noexcept
      : data_(std::ranges::data(range)),
        size_(std::ranges::size(range)),
        at_(&entryOf<std::ranges::range_value_t<Range>>),
        present_(true) {}

  /// Absent when the optional is.
  template <class Optional>
  requires std::is_same_v<Optional, std::optional<std::vector<std::string>>> TextList(
      const Optional& list VANTAMO_LIFETIMEBOUND)
  noexcept {
    if (list) *this = TextList(*list);
  }

  /// False only for an absent list.
  [[nodiscard]] constexpr bool present() const noexcept { return present_; }
  /// Number of entries; 0 when absent.
  [[nodiscard]] constexpr std::size_t size() const noexcept { return size_; }
  /// The entry at `index`, which must be less than size(); an absent entry comes back as "".
  [[nodiscard]] std::string_view operator[](std::size_t index) const noexcept {
    return at_(data_, index).view();
  }

 private:
  template <class Entry>
  static Text entryOf(const void* data, std::size_t index) noexcept {
    return Text(static_cast<const Entry*>(data)[index]);
  }

  const void* data_ = nullptr;
  std::size_t size_ = 0;
  Text (*at_)(const void*, std::size_t) noexcept = nullptr;
  bool present_ = false;
};

}  // namespace vantamo
