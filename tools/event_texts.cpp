#include "tools/event_texts.h"

#include <array>
#include <span>
#include <stdexcept>
#include <string>

namespace vantamo::tools {
namespace {

struct Named {
  std::string_view name;
  std::string_view text;
};

constexpr auto purposes = std::to_array<Named>({
    {"firePageView", "A page or screen was shown; with a search, its term and number of results."},
    {"fireProductview", "A product's details were shown."},
    {"fireShopAction5", "A product was put into the cart: one event for each line of the cart."},
    {"fireShopAction9",
     "A product was bought: one event for each line of a purchase, followed by one `fireOrder`."},
    {"fireOrder", "An order was placed: one event for the whole of it."},
    {"fireRegistration", "A customer registered or changed their data."},
    {"fireElement", "An element of a page was used: a menu, a video, a size chart."},
    {"fireConversionEvent", "A step of something that the app wants its users to do."},
    {"fireLinkClick", "A link was followed."},
    {"fireImpression", "Something was seen on a page: a promotion, a banner."},
});

// An entry with an event's name before the argument's comes before the plain one.
constexpr auto meanings = std::to_array<Named>({
    {"fireLinkClick.pageId", "where the link stands"},
    {"pageId", "the name of the page"},
    {"category", "what the page or product belongs to"},
    {"searchTerm", "what was searched for"},
    {"searchResult", "the number of results found"},
    {"attributes", "what else the app wants to tell"},
    {"vqmmc", "the elements of the marketing code that led here"},
    {"productId", "the product"},
    {"productName", "what it is called"},
    {"quantity", "how many"},
    {"baseUnitPrice", "the price of one"},
    {"currencyCode", "the currency of the prices"},
    {"orderId", "the order"},
    {"orderSubTotal", "the whole order without shipping"},
    {"subtotal", "the whole order without shipping"},
    {"shippingCharge", "what shipping costs"},
    {"customerId", "the customer"},
    {"customerCity", "where the customer lives"},
    {"customerState", "the state, province or region"},
    {"customerZip", "the postal code"},
    {"customerCountry", "the country"},
    {"email", "the customer's address"},
    {"elementId", "the element that was used"},
    {"elementCategory", "what the element belongs to"},
    {"eventId", "what is to be done"},
    {"actionType", "`1` when begun, `2` when completed"},
    {"eventCategory", "what the event belongs to"},
    {"eventPoints", "what it is worth to the app"},
    {"linkName", "what the link is called"},
    {"link", "where it leads"},
    {"vqsp", "the elements of the site promotion"},
    {"vqre", "the elements of the real estate"},
});

constexpr auto samples = std::to_array<Named>({
    {"pageId", "home"},
    {"productId", "sku-1"},
    {"productName", "Shoe"},
    {"quantity", "2"},
    {"baseUnitPrice", "19.90"},
    {"currencyCode", "EUR"},
    {"orderId", "o-1"},
    {"orderSubTotal", "39.80"},
    {"subtotal", "39.80"},
    {"shippingCharge", "4.90"},
    {"customerId", "c-7"},
    {"elementId", "size-chart"},
    {"eventId", "newsletter"},
    {"actionType", "2"},
    {"link", "/imprint"},
});

const Named* find(std::span<const Named> table, std::string_view name) {
  for (const Named& entry : table) {
    if (entry.name == name) return &entry;
  }
  return nullptr;
}

std::string_view textOf(std::span<const Named> table, std::string_view name) {
  if (const Named* entry = find(table, name)) return entry->text;
  throw std::out_of_range("there is no text for " + std::string(name));
}

}  // namespace

std::string_view purposeOf(std::string_view event) { return textOf(purposes, event); }

std::string_view meaningOf(std::string_view event, std::string_view argument) {
  const Named* own = find(meanings, std::string(event).append(".").append(argument));
  return own == nullptr ? textOf(meanings, argument) : own->text;
}

std::string_view sampleOf(std::string_view argument) { return textOf(samples, argument); }

}  // namespace vantamo::tools
