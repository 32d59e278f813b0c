#pragma once

#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

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

  std::unique_ptr<BluezBus> makeBus();

  /// Before the bus is started: whether it can be reached, and bluetoothd be found on it.
  bool hasBus = true;
  bool isRunning = true;
  std::set<std::string, std::less<>> byHand;

  // --- what happens ---

  void loseBus();
  void findBus();
  void stop();
  void restart();
  /// Silently: as it was before we came, or is told by GetManagedObjects first.
  void place(const std::string& path, std::string_view interface, Dictionary properties);
  /// Announced with all interfaces that were placed there.
  void announce(const std::string& path);
  void add(const std::string& path, std::string_view interface, Dictionary properties);
  void remove(const std::string& path);
  void change(const std::string& path, std::string_view interface, const Dictionary& changed,
              const Array& invalidated = {});
  void disconnected(const std::string& path, const std::string& reason);

  // --- calls ---

  /// Those since the last time, such as "hci0 StartDiscovery" or
  /// "char0011 WriteValue 0102 request".
  std::vector<std::string> takeCalls();
  /// Members of the calls that wait for an answer, oldest first.
  std::vector<std::string> pending() const;
  /// Answer the oldest waiting call of the member.
  void reply(std::string_view member, Array values = {});
  void fail(std::string_view member, std::string_view name, std::string_view text = "");

 private:
  class Bus;
  struct Waiting {
    BluezCall call;
    BluezBus::Callback callback;
  };

  void tell(UniqueFunction<void(BluezBusListener&)> call);
  void record(const BluezCall& call);
  void received(BluezCall call, BluezBus::Callback callback);
  void answer(Waiting waiting, BluezReply reply);
  BluezReply replyOf(const BluezCall& call);
  Waiting takeWaiting(std::string_view member);

  RunLoop& loop_;
  BluezBusListener* listener_ = nullptr;
  std::map<std::string, Dictionary> objects_;
  std::vector<std::string> calls_;
  std::deque<Waiting> waiting_;
  /// Replaced when calls become void.
  std::shared_ptr<char> era_ = std::make_shared<char>();
};

}  // namespace wrixel2::platform::bluez
