#include "platform/linux/SdBusDistributedNotificationCenter.h"

#include <utility>

namespace wrixel2::platform::linux {
namespace {

Notification notificationFromArguments(const Array& arguments) {
  Notification notification{*arguments[0].text(), std::nullopt, *arguments[2].dictionary()};
  if (!arguments[1].text()->empty()) {
    notification.object = *arguments[1].text();
  }
  return notification;
}

}  // namespace

SdBusDistributedNotificationCenter::SdBusDistributedNotificationCenter(BusConnection& connection,
                                                                       Log& log)
    : postings_(connection, log, "/org/corvale/DistributedNotificationCenter",
                "org.corvale.DistributedNotificationCenter", "ssa{sv}") {}

std::unique_ptr<Observation> SdBusDistributedNotificationCenter::addObserver(std::string_view name,
                                                                             Callback callback) {
  return postings_.addObserver(name, [callback = std::move(callback)](const Array& arguments) {
    callback(notificationFromArguments(arguments));
  });
}

void SdBusDistributedNotificationCenter::post(const Notification& notification) {
  postings_.post({notification.name, notification.object.value_or(""), notification.userInfo});
}

}  // namespace wrixel2::platform::linux
