#pragma once

#include "vantamo/text.h"

namespace vantamo::tags {

/// A page view as the module fires it: the marketing code's elements are one string already. Also
/// the arguments of a technical-properties tag.
struct JoinedPageView {
  Text pageId;
  Text category;
  Text searchTerm;
  Text searchResult;
  TextList attributes;
  Text vqmmc;
};

/// An impression as the module fires it.
struct JoinedImpression {
  Text pageId;
  Text vqsp;
  Text vqre;
};

}  // namespace vantamo::tags
