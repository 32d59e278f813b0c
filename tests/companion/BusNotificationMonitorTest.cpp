#include <algorithm>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "companion/BusNotificationMonitor.h"
#include "companion/DesktopUserAlerts.h"
#include "tests/platform/linux/BusTest.h"
#include "tests/platform/linux/FakeNotificationService.h"

namespace wrixel2::companion {
namespace {

using platform::Array;
using platform::Dictionary;
using platform::linux::BusAddress;
using platform::linux::BusMessage;
using Events = std::vector<std::string>;

const BusAddress& kService = platform::linux::kNotificationService;

/// A phone's notification service in one connection, apps in another, and what the monitor tells.
class BusNotificationMonitorTest : public platform::linux::BusTest, public NotificationListener {
 protected:
  BusNotificationMonitorTest() {
    ::setenv("DBUS_SESSION_BUS_ADDRESS", bus.address().c_str(), 1);
    served =
        std::move(*platform::linux::serveNotifications(*service, [this](const Array& arguments) {
          shown = *arguments[3].text() + ": " + *arguments[4].text();
          return ++lastNumber;
        }));
    monitor = std::move(*BusNotificationMonitor::start(loop, log, own->uniqueName(), *this));
  }

  void appNotified(const AppNotification& notification) override {
    events.push_back("notified " + notification.app + ": " + notification.body);
    handles.push_back(notification.handle);
  }
  void notificationRenamed(const std::string& handle, const std::string& newHandle) override {
    renames.emplace_back(handle, newHandle);
  }
  void notificationEnded(const std::string& handle) override {
    events.push_back("ended " + handle);
  }

  void call(const BusAddress& address, const char* member, const char* signature,
            const Array& arguments) {
    auto message = other->newMethodCall(address, member, signature, arguments);
    ASSERT_TRUE(message);
    // A call that is only sent is not answered, and the answer is what tells the number.
    auto pending = other->callAsync(*message, [](const BusMessage&) {});
    ASSERT_TRUE(pending);
    pending->detach();
  }
  void notify(const BusAddress& address, const std::string& body) {
    call(address, "Notify", "susssasa{sv}i",
         {"Chat", 0, "", "Anna", body, Array{}, Dictionary{}, -1});
  }
  /// What has been told before a last notification.
  Events eventsSince() {
    const std::string last = "notified Chat: last";
    notify(kService, "last");
    serveUntil([&] {
      return !events.empty() && events.back() == last && !renames.empty() &&
             renames.back().first == handles.back();
    });
    events.pop_back();
    handles.pop_back();
    renames.pop_back();
    return std::exchange(events, {});
  }

  std::unique_ptr<platform::linux::BusConnection> service = open();
  platform::linux::BusSlot served;
  int lastNumber = 0;
  std::string shown;  ///< the last one's "summary: body"
  std::unique_ptr<BusNotificationMonitor> monitor;
  Events events;
  std::vector<std::string> handles;
  std::vector<std::pair<std::string, std::string>> renames;
};

TEST_F(BusNotificationMonitorTest, SeesEveryKindOfNotificationAndItsEnd) {
  // Whoever these are addressed to need not be there.
  const BusAddress gtk{"org.gtk.Notifications", "/org/gtk/Notifications", "org.gtk.Notifications"};
  const BusAddress portal{"org.freedesktop.impl.portal.desktop.gtk",
                          "/org/freedesktop/portal/desktop",
                          "org.freedesktop.impl.portal.Notification"};
  notify(kService, "one");
  EXPECT_EQ(eventsSince(), Events{"notified Chat: one"});
  ASSERT_EQ(renames.size(), 1U);
  EXPECT_EQ(renames[0], (std::pair<std::string, std::string>{handles[0], handleOfNumber(1)}));
  for (const BusAddress& address : {gtk, portal}) {
    handles.clear();
    call(address, "AddNotification", "ssa{sv}",
         {"org.example.App", "id", Dictionary{{"title", "Anna"}, {"body", "two"}}});
    call(address, "RemoveNotification", "ss", {"org.example.App", "id"});
    EXPECT_EQ(eventsSince(), (Events{"notified org.example.App: two",
                                     "ended " + handleOfName("org.example.App", "id")}));
    EXPECT_EQ(handles, Events{handleOfName("org.example.App", "id")});
  }
  call(kService, "CloseNotification", "u", {5});
  service->emitSignal(kService.path, kService.interface, "NotificationClosed", "uu", {6, 2});
  service->emitSignal(kService.path, kService.interface, "ActionInvoked", "us", {7, "default"});
  serveUntil([this] { return events.size() == 3; });
  std::sort(events.begin(), events.end());  // they are of two programs
  EXPECT_EQ(eventsSince(), (Events{"ended " + handleOfNumber(5), "ended " + handleOfNumber(6),
                                   "ended " + handleOfNumber(7)}));
}

TEST_F(BusNotificationMonitorTest, LeavesOutWhatIsNobodysNotification) {
  notify({"org.gnome.Shell", kService.path, kService.interface}, "a forwarded copy");
  auto ours = own->newMethodCall(kService, "Notify", "susssasa{sv}i",
                                 {"we", 0, "", "a", "b", Array{}, Dictionary{}, -1});
  ASSERT_EQ(own->send(*ours), std::nullopt);
  call(kService, "Notify", "s", {"ill-formed"});
  call(kService, "CloseNotification", "", {});
  // Another program's signal of the same look, and answers of others.
  other->emitSignal(kService.path, kService.interface, "NotificationClosed", "uu", {6, 2});
  answer({"org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus"}, "GetId");
  renames.clear();
  EXPECT_EQ(eventsSince(), Events{"ended "});
  EXPECT_TRUE(renames.empty());
}

TEST_F(BusNotificationMonitorTest, OurOwnAlertsAreShownAsPlainTextAndNotForwarded) {
  DesktopUserAlerts alerts(*own, log);
  alerts.present("Heart rates", "1 < 2 & <b>3</b>");
  serveUntil([this] { return !shown.empty(); });
  EXPECT_EQ(shown, "Heart rates: 1 &lt; 2 &amp; &lt;b&gt;3&lt;/b&gt;");
  EXPECT_EQ(eventsSince(), Events{});
  service.reset();
  settle();
  alerts.present("Heart rates", "");
  serveUntil([this] { return log.contains("WARN Could not show \"Heart rates\""); });
}

}  // namespace
}  // namespace wrixel2::companion
