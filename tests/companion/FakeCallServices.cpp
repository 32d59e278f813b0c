#include "tests/companion/FakeCallServices.h"

#include <utility>

#include "companion/GnomeCallsSource.h"
#include "companion/ModemManagerCallSource.h"
#include "companion/OfonoCallSource.h"

namespace wrixel2::companion {

namespace {

using platform::Array;
using platform::Dictionary;
using platform::Value;
using platform::linux::BusConnection;
using platform::linux::BusInterface;
using platform::linux::BusMessage;
using platform::linux::BusMethod;

/// A state as a service has it: the words are in the order of CallState.
template <typename Word>
Word wordOf(CallState state, const Word (&words)[5]) {
  return words[static_cast<std::size_t>(state)];
}

class FakeGnomeCalls final : public FakeCallService {
 public:
  explicit FakeGnomeCalls(BusConnection& bus)
      : FakeCallService(bus, "org.gnome.Calls", "/org/gnome/Calls/Call/") {
    serveObjectManager("/org/gnome/Calls");
  }

  std::unique_ptr<CallSource> source(BusConnection& bus, platform::Log& log) const override {
    return std::make_unique<GnomeCallsSource>(bus, log);
  }

 private:
  static constexpr const char* kCall = "org.gnome.Calls.Call";

  static Value number(CallState state) { return wordOf(state, {5, 6, 3, 1, 7}); }

  BusInterface interfaceOf(const std::string& path, const Call& call) override {
    return {
        kCall,
        {action(path, "Accept"), action(path, "Hangup"), action(path, "Silence")},
        {{"State", "u", [&call] { return number(call.state); }, nullptr},
         {"Inbound", "b", [&call] { return Value(call.state != CallState::outgoing); }, nullptr},
         {"Id", "s", [&call] { return Value(call.number); }, nullptr},
         {"DisplayName", "s", [&call] { return Value(call.caller); }, nullptr}},
        {}};
  }
  void announce(const std::string& path, const Call& /*call*/) override {
    sd_bus_emit_interfaces_added(bus_.get(), path.c_str(), kCall, nullptr);
  }
  void announceState(const std::string& path, const Call& call) override {
    changed(path, kCall, {{"State", number(call.state)}});
  }
  void announceNumber(const std::string& path, const Call& call) override {
    changed(path, kCall, {{"Id", call.number}});
  }
  void announceRemoval(const std::string& path) override {
    sd_bus_emit_interfaces_removed(bus_.get(), path.c_str(), kCall, nullptr);
  }
};

class FakeModemManager final : public FakeCallService {
 public:
  explicit FakeModemManager(BusConnection& bus)
      : FakeCallService(bus, "org.freedesktop.ModemManager1",
                        "/org/freedesktop/ModemManager1/Call/") {
    serveObjectManager("/org/freedesktop/ModemManager1");
    serve(kModem, {kVoice, {}, {{"Calls", "ao", [this] { return paths(); }, nullptr}}, {}});
  }

  std::unique_ptr<CallSource> source(BusConnection& bus, platform::Log& log) const override {
    return std::make_unique<ModemManagerCallSource>(bus, log);
  }
  void removeModem() override {
    sd_bus_emit_interfaces_removed(bus_.get(), kModem, kVoice, nullptr);
    slots_.pop_back();
  }

 private:
  static constexpr const char* kModem = "/org/freedesktop/ModemManager1/Modem/0";
  static constexpr const char* kVoice = "org.freedesktop.ModemManager1.Modem.Voice";
  static constexpr const char* kCall = "org.freedesktop.ModemManager1.Call";

  static Value number(CallState state) { return wordOf(state, {3, 6, 2, 4, 7}); }
  Value paths() const {
    Array all;
    for (const auto& [path, call] : calls_) {
      all.emplace_back(path);
    }
    return all;
  }

  BusInterface interfaceOf(const std::string& path, const Call& call) override {
    const auto direction = [&call] { return Value(call.state == CallState::outgoing ? 2 : 1); };
    return {kCall,
            {action(path, "Hangup")},
            {{"State", "i", [&call] { return number(call.state); }, nullptr},
             {"Direction", "i", direction, nullptr},
             {"Number", "s", [&call] { return Value(call.number); }, nullptr}},
            {}};
  }
  void announce(const std::string& path, const Call& /*call*/) override {
    bus_.emitSignal(kModem, kVoice, "CallAdded", "o", {path});
  }
  void announceState(const std::string& path, const Call& call) override {
    bus_.emitSignal(path, kCall, "StateChanged", "iiu", {0, number(call.state), 0});
  }
  void announceNumber(const std::string& path, const Call& call) override {
    changed(path, kCall, {{"Number", call.number}});
  }
  void announceRemoval(const std::string& path) override {
    bus_.emitSignal(kModem, kVoice, "CallDeleted", "o", {path});
  }
};

class FakeOfono final : public FakeCallService {
 public:
  explicit FakeOfono(BusConnection& bus) : FakeCallService(bus, "org.ofono", "/modem0/voicecall0") {
    const auto modems = [](const BusMessage& call) {
      call.reply(kObjects, {Value(Array{Array{kModem, Dictionary{{"Interfaces", Array{kManager}}}},
                                        Array{"/modem1", Dictionary{{"Interfaces", Array{}}}}})});
    };
    const auto calls = [this](const BusMessage& call) { call.reply(kObjects, {all()}); };
    serve("/", {"org.ofono.Manager", {{"GetModems", {}, {{"modems", kObjects}}, modems}}, {}, {}});
    serve(kModem, {kManager, {{"GetCalls", {}, {{"calls", kObjects}}, calls}}, {}, {}});
  }

  std::unique_ptr<CallSource> source(BusConnection& bus, platform::Log& log) const override {
    return std::make_unique<OfonoCallSource>(bus, log);
  }
  void removeModem() override {
    bus_.emitSignal(kModem, "org.ofono.Modem", "PropertyChanged", "sv",
                    {"Interfaces", Array{"org.ofono.SimManager"}});
  }

 private:
  static constexpr const char* kModem = "/modem0";
  static constexpr const char* kManager = "org.ofono.VoiceCallManager";
  static constexpr const char* kCall = "org.ofono.VoiceCall";
  static constexpr const char* kObjects = "a(oa{sv})";

  static Value word(CallState state) {
    return wordOf<const char*>(state, {"incoming", "waiting", "dialing", "active", "disconnected"});
  }
  static Value line(const Call& call) { return call.number.empty() ? "withheld" : call.number; }
  static Dictionary propertiesOf(const Call& call) {
    return {{"State", word(call.state)}, {"LineIdentification", line(call)}, {"Name", call.caller}};
  }
  Value all() const {
    Array array;
    for (const auto& [path, call] : calls_) {
      array.emplace_back(Array{path, propertiesOf(call)});
    }
    return array;
  }

  BusInterface interfaceOf(const std::string& path, const Call& /*call*/) override {
    return {kCall, {action(path, "Hangup")}, {}, {}};
  }
  void announce(const std::string& path, const Call& call) override {
    bus_.emitSignal(kModem, kManager, "CallAdded", "oa{sv}", {path, propertiesOf(call)});
  }
  void announceState(const std::string& path, const Call& call) override {
    bus_.emitSignal(path, kCall, "PropertyChanged", "sv", {"State", word(call.state)});
  }
  void announceNumber(const std::string& path, const Call& call) override {
    bus_.emitSignal(path, kCall, "PropertyChanged", "sv", {"LineIdentification", line(call)});
  }
  void announceRemoval(const std::string& path) override {
    bus_.emitSignal(kModem, kManager, "CallRemoved", "o", {path});
  }
};

}  // namespace

std::unique_ptr<FakeCallService> FakeCallService::named(const std::string& name,
                                                        BusConnection& bus) {
  if (name == "org.gnome.Calls") {
    return std::make_unique<FakeGnomeCalls>(bus);
  }
  if (name == "org.ofono") {
    return std::make_unique<FakeOfono>(bus);
  }
  return std::make_unique<FakeModemManager>(bus);
}

std::string FakeCallService::add(CallState state, const std::string& number,
                                 const std::string& caller) {
  const std::string path = callPrefix_ + std::to_string(nextCall_++);
  Call& call = calls_[path];
  call = {state, number, caller, {}};
  call.slot = std::move(*bus_.addInterface(path, interfaceOf(path, call)));
  announce(path, call);
  return path;
}

void FakeCallService::setState(const std::string& path, CallState state) {
  calls_.at(path).state = state;
  announceState(path, calls_.at(path));
}

void FakeCallService::setNumber(const std::string& path, const std::string& number) {
  calls_.at(path).number = number;
  announceNumber(path, calls_.at(path));
}

void FakeCallService::remove(const std::string& path) {
  announceRemoval(path);
  calls_.erase(path);
}

void FakeCallService::serve(const char* path, BusInterface interface) {
  slots_.push_back(std::move(*bus_.addInterface(path, std::move(interface))));
}

void FakeCallService::serveObjectManager(const char* path) {
  sd_bus_slot* slot = nullptr;
  sd_bus_add_object_manager(bus_.get(), &slot, path);
  slots_.emplace_back(slot);
}

BusMethod FakeCallService::action(const std::string& path, const std::string& method) {
  return {method, {}, {}, [this, line = method + " " + path](const BusMessage& call) {
            done.push_back(line);
            call.reply("", {});
          }};
}

void FakeCallService::changed(const std::string& path, const std::string& interface,
                              const Dictionary& properties) const {
  bus_.emitSignal(path, "org.freedesktop.DBus.Properties", "PropertiesChanged", "sa{sv}as",
                  {interface, properties, Array{}});
}

}  // namespace wrixel2::companion
