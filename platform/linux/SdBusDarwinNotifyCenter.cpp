#include "platform/linux/SdBusDarwinNotifyCenter.h"

#include <utility>

namespace wrixel2::platform::linux {

SdBusDarwinNotifyCenter::SdBusDarwinNotifyCenter(BusConnection& connection, Log& log,
                                                 BusService* publisher)
    : postings_(connection, log, "/org/corvale/NotifyCenter", "org.corvale.NotifyCenter",
                {{"name", "s"}}, publisher) {}

std::unique_ptr<Observation> SdBusDarwinNotifyCenter::addObserver(std::string_view name,
                                                                  SuspensionBehavior /*behavior*/,
                                                                  Callback callback) {
  return postings_.addObserver(name, [callback = std::move(callback)](const Array& arguments) {
    callback(*arguments[0].text());
  });
}

void SdBusDarwinNotifyCenter::post(std::string_view name) { postings_.post({name}); }

}  // namespace wrixel2::platform::linux
