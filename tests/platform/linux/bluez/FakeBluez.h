#pragma once

#include <algorithm>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gtest/gtest.h>

#include "platform/RunLoop.h"
#include "platform/linux/bluez/BluezBus.h"

namespace wrixel2::platform::bluez {

/// A bluetoothd that a test plays: objects, announcements and answers.
///
/// It answers every call by itself, as a bluetoothd without troubles does, but those whose member
/// is in `byHand`, which wait for reply() or fail(). Whatever it says comes in turns of the loop,
/// in order.
class FakeBluez {
 public:
  explicit FakeBluez(RunLoop& loop) : loop_(loop) {}

  std::unique_ptr<BluezBus> makeBus() { return std::make_unique<Bus>(*this); }

  /// Before the bus is started: whether it can be reached, and bluetoothd be found on it.
  bool hasBus = true;
  bool isRunning = true;
  std::set<std::string, std::less<>> byHand;

  // --- what happens ---

  void loseBus() {
    forgetCalls();
    tell([](BluezBusListener& listener) { listener.busUnavailable({111, "No bus"}); });
  }
  void findBus() { setIsThere(isRunning); }
  void stop() {
    forgetCalls();
    setIsThere(false);
  }
  void restart() { setIsThere(true); }
  /// Silently: as it was before we came, or is told by GetManagedObjects first.
  void place(const std::string& path, std::string_view interface, Dictionary properties) {
    objects_[path].insert_or_assign(std::string(interface), std::move(properties));
  }
  void clear() { objects_.clear(); }
  /// What GetManagedObjects is answered with.
  Dictionary managedObjects() const { return {objects_.begin(), objects_.end()}; }
  /// Announced with all interfaces that were placed there.
  void announce(const std::string& path) {
    tell([path, interfaces = objects_.at(path)](BluezBusListener& listener) {
      listener.interfacesAdded(path, interfaces);
    });
  }
  void add(const std::string& path, std::string_view interface, Dictionary properties) {
    place(path, interface, std::move(properties));
    announce(path);
  }
  void remove(const std::string& path) {
    Array interfaces;
    for (const auto& [name, properties] : objects_.at(path)) {
      interfaces.emplace_back(name);
    }
    objects_.erase(path);
    tell([path, interfaces](BluezBusListener& listener) {
      listener.interfacesRemoved(path, interfaces);
    });
  }
  void change(const std::string& path, std::string_view interface, const Dictionary& changed,
              const Array& invalidated = {}) {
    const auto object = objects_.find(path);
    if (object != objects_.end() && find(object->second, interface) != nullptr) {
      Dictionary properties = *find(object->second, interface)->dictionary();
      for (const auto& [name, value] : changed) {
        properties.insert_or_assign(name, value);
      }
      place(path, interface, properties);
    }
    tell([path, interface = std::string(interface), changed,
          invalidated](BluezBusListener& listener) {
      listener.propertiesChanged(path, interface, changed, invalidated);
    });
  }
  void disconnected(const std::string& path, const std::string& reason) {
    tell([path, reason](BluezBusListener& listener) { listener.deviceDisconnected(path, reason); });
  }

  // --- calls ---

  /// Those since the last time, such as "hci0 StartDiscovery, char0011 WriteValue 0102 request".
  std::string takeCalls() { return fmt::format("{}", fmt::join(std::exchange(calls_, {}), ", ")); }
  /// Members of the calls that wait for an answer, oldest first.
  std::string pending() const {
    std::vector<std::string_view> members;
    for (const auto& waiting : waiting_) {
      members.push_back(waiting.call.member);
    }
    return fmt::format("{}", fmt::join(members, ", "));
  }
  /// Answer the oldest waiting call of the member.
  void reply(std::string_view member, Array values = {}) {
    answer(takeWaiting(member), {std::move(values), {}, {}});
  }
  /// With an error of bluetoothd's own, or one named in full.
  void fail(std::string_view member, std::string_view name, std::string_view text = "") {
    const bool isInFull = name.find('.') != std::string_view::npos;
    answer(takeWaiting(member),
           {{}, fmt::format("{}{}", isInFull ? "" : "org.bluez.Error.", name), std::string(text)});
  }

 private:
  struct Waiting {
    BluezCall call;
    BluezBus::Callback callback;
  };

  class Bus final : public BluezBus {
   public:
    explicit Bus(FakeBluez& bluez) : bluez_(bluez) {}
    ~Bus() override {
      bluez_.listener_ = nullptr;
      bluez_.forgetCalls();
    }

    void start(BluezBusListener& listener) override {
      bluez_.listener_ = &listener;
      bluez_.hasBus ? bluez_.findBus() : bluez_.loseBus();
    }
    void call(BluezCall call, TimeInterval timeout, Callback callback) override {
      // The kernel and the peer have this long before bluetoothd itself gives up.
      EXPECT_GE(timeout, std::chrono::seconds(60)) << call.member;
      bluez_.received({std::move(call), std::move(callback)});
    }
    void send(BluezCall call) override { bluez_.record(call); }

   private:
    FakeBluez& bluez_;
  };

  void tell(UniqueFunction<void(BluezBusListener&)> call) {
    loop_.post([this, call = std::move(call)] {
      if (listener_ != nullptr) {
        call(*listener_);
      }
    });
  }
  void setIsThere(bool isThere) {
    tell([isThere](BluezBusListener& listener) { listener.bluezOwnerChanged(isThere); });
  }
  void forgetCalls() {
    era_ = std::make_shared<char>();
    waiting_.clear();
  }

  void record(const BluezCall& call) {
    std::string text = call.path.substr(call.path.rfind('/') + 1) + " ";
    text += call.member;
    if (call.value) {
      text += " " + hexText(*call.value);
    }
    for (const auto& option : call.options.value_or(std::vector<BluezOption>())) {
      std::string shown = option.value.text() == nullptr ? std::to_string(option.value.longValue())
                                                         : *option.value.text();
      if (const auto* texts = option.value.array()) {
        shown.clear();
        for (const auto& one : *texts) {
          shown += (shown.empty() ? "" : "+") + one.text()->substr(4, 4);
        }
      }
      text += option.name == "type" ? " " + shown : fmt::format(" {}={}", option.name, shown);
    }
    calls_.push_back(text);
  }

  void received(Waiting waiting) {
    if (waiting.call.member != "GetManagedObjects") {
      record(waiting.call);
    }
    if (byHand.contains(waiting.call.member)) {
      waiting_.push_back(std::move(waiting));
    } else {
      auto reply = replyOf(waiting.call);
      answer(std::move(waiting), std::move(reply));
    }
  }

  void answer(Waiting waiting, BluezReply reply) {
    loop_.post([era = std::weak_ptr<char>(era_), callback = std::move(waiting.callback),
                reply = std::move(reply)] {
      if (callback && !era.expired()) {
        callback(reply);
      }
    });
  }

  BluezReply replyOf(const BluezCall& call) {
    if (call.member == "GetManagedObjects") {
      return {{managedObjects()}, {}, {}};
    }
    if (!objects_.contains(call.path)) {
      return {{}, "org.freedesktop.DBus.Error.UnknownObject", "No such object"};
    }
    if (call.member == "Connect") {
      change(call.path, kDeviceInterface, {{"Connected", true}});
      change(call.path, kDeviceInterface, {{"ServicesResolved", true}});
    } else if (call.member == "Disconnect") {
      change(call.path, kDeviceInterface, {{"ServicesResolved", false}, {"Connected", false}});
    } else if (call.member == "ReadValue") {
      const Bytes value{0xAA};
      change(call.path, call.interface, {{"Value", value}});
      return {{value}, {}, {}};
    }
    return {};
  }

  Waiting takeWaiting(std::string_view member) {
    const auto found = std::ranges::find_if(
        waiting_, [member](const Waiting& waiting) { return waiting.call.member == member; });
    if (found == waiting_.end()) {
      ADD_FAILURE() << "No call of " << member << " waits for an answer";
      return {};
    }
    Waiting waiting = std::move(*found);
    waiting_.erase(found);
    return waiting;
  }

  RunLoop& loop_;
  BluezBusListener* listener_ = nullptr;
  std::map<std::string, Dictionary> objects_;
  std::vector<std::string> calls_;
  std::deque<Waiting> waiting_;
  /// Replaced when calls become void.
  std::shared_ptr<char> era_ = std::make_shared<char>();
};

}  // namespace wrixel2::platform::bluez
