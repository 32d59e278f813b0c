#include "platform/linux/SdBusDistributedNotificationCenter.h"

#include <utility>

namespace wrixel2::platform::linux {

Notification SdBusDistributedNotificationCenter::notificationFromArguments(const Array& arguments) {
  Notification notification{*arguments[0].text(), std::nullopt, *arguments[2].dictionary()};
  if (!arguments[1].text()->empty()) {
    notification.object = *arguments[1].text();
  }
  return notification;
}

SdBusDistributedNotificationCenter::SdBusDistributedNotificationCenter(BusConnection& connection,
                                                                       Log& log,
                                                                       BusService* publisher)
    : postings_(connection, log, "/org/corvale/DistributedNotificationCenter",
                "org.corvale.DistributedNotificationCenter",
                {{"name", "s"}, {"object", "s"}, {"userInfo", "a{sv}"}}, publisher) {}

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
