#pragma once

#include <string>

namespace vantamo::state {

/// A finished tag as it waits for its post and is posted: the JSON object, strings under wire keys,
/// that becomes the message's body, or the query string.
struct StoredTag {
  enum class Form { json, queryString };

  Form form = Form::json;
  std::string text;
};

}  // namespace vantamo::state
