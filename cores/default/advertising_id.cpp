#include "cores/default/advertising_id.h"

namespace vantamo::core {

void AdvertisingId::set(Text id) { id_.set(id.absentOrEmpty() ? std::nullopt : id.copy()); }

std::optional<std::string> AdvertisingId::get() const { return id_.get(); }

}  // namespace vantamo::core
