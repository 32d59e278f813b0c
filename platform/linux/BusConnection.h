#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <systemd/sd-bus.h>

#include "platform/Date.h"
#include "platform/Result.h"
#include "platform/RunLoop.h"
#include "platform/UniqueFunction.h"
#include "platform/linux/BusInterface.h"
#include "platform/linux/BusMessage.h"
#include "platform/linux/BusSlot.h"

namespace wrixel2::platform::linux {

class LinuxRunLoop;

/// Where a message goes.
struct BusAddress {
  std::string destination;
  std::string path;
  std::string interface;
};

/// One connection to a bus, served by the loop: callbacks come in its turns, in the order in which
/// the messages came, never inside another call. While a synchronous call waits, what arrives stays
/// queued in order.
///
/// The destructor sends what is still queued, but for a connection that never waits
/// (beginSystem()). Slots may outlive the connection.
class BusConnection {
 public:
  using Callback = UniqueFunction<void(const BusMessage& message)>;
  using OwnerChanged = UniqueFunction<void(const std::string& owner)>;

  static constexpr TimeInterval kDefaultTimeout = std::chrono::seconds(25);
  /// For a call that is waited for until it is answered or the callee has gone.
  static constexpr TimeInterval kNoTimeout = TimeInterval(-1);

  /// The user's bus: of DBUS_SESSION_BUS_ADDRESS, else $XDG_RUNTIME_DIR/bus.
  static Result<std::unique_ptr<BusConnection>> openSession(LinuxRunLoop& loop);
  /// The machine's: of DBUS_SYSTEM_BUS_ADDRESS, else the well-known socket.
  static Result<std::unique_ptr<BusConnection>> openSystem(LinuxRunLoop& loop);
  /// A session bus by its D-Bus address.
  static Result<std::unique_ptr<BusConnection>> openAddress(LinuxRunLoop& loop,
                                                            const std::string& address);
  /// A connection to the machine's bus, or the one at the address, for a loop that must not wait:
  /// neither here, nor while the bus takes its time, nor when it is destroyed. It can be used from
  /// the callback on; a bus that does not let us in is told by onDisconnected(), one that says
  /// nothing never.
  static Result<std::unique_ptr<BusConnection>> beginSystem(LinuxRunLoop& loop,
                                                            const std::string& address,
                                                            Task connected);
  /// A connection that sees the messages of others and can send nothing: each message that one of
  /// the match rules names (none: every message) is given to the callback.
  static Result<std::unique_ptr<BusConnection>> openSessionMonitor(
      LinuxRunLoop& loop, const std::vector<std::string>& rules, Callback callback);
  static Result<std::unique_ptr<BusConnection>> openSystemMonitor(
      LinuxRunLoop& loop, const std::vector<std::string>& rules, Callback callback);

  BusConnection(const BusConnection&) = delete;
  BusConnection& operator=(const BusConnection&) = delete;
  ~BusConnection();

  sd_bus* get() const { return bus_; }
  LinuxRunLoop& loop() const { return loop_; }
  /// ":1.42", what the bus knows this connection by.
  const std::string& uniqueName() const { return uniqueName_; }

  /// Called once when the bus ends the connection; nothing works on it from then on.
  void onDisconnected(Task callback) { disconnected_ = std::move(callback); }

  /// A call that is still to be sent; the arguments are those of appendValues().
  Result<BusMessage> newMethodCall(const BusAddress& address, std::string_view member,
                                   std::string_view signature = {},
                                   const Array& arguments = {}) const;

  ErrorOrNone send(const BusMessage& message) const;
  /// Waits for the reply. An error reply is an error whose text begins with its name.
  Result<BusMessage> call(const BusMessage& message, TimeInterval timeout = kDefaultTimeout) const;
  /// The callback gets the reply, which may be an error reply: the callee's, or one that stands for
  /// the time being over (org.freedesktop.DBus.Error.NoReply) or the connection's end. Called at
  /// most once: dropping the slot drops it.
  [[nodiscard]] Result<BusSlot> callAsync(const BusMessage& message, Callback callback,
                                          TimeInterval timeout = kDefaultTimeout) const;

  ErrorOrNone emitSignal(const std::string& path, const std::string& interface,
                         std::string_view member, std::string_view signature,
                         const Array& arguments) const;
  /// In force when it returns; on a connection that never waits, for all that is sent after it.
  [[nodiscard]] Result<BusSlot> addMatch(const std::string& rule, Callback callback) const;
  /// Tells each new owner of a well-known name by its unique name, none by an empty one. In force
  /// as addMatch() is.
  [[nodiscard]] Result<BusSlot> watchOwner(const std::string& name, OwnerChanged changed) const;
  /// Sees every message before anything else does and lets it pass.
  [[nodiscard]] Result<BusSlot> addFilter(Callback callback) const;
  /// One path may carry several interfaces. Method handlers are called from the loop.
  [[nodiscard]] Result<BusSlot> addInterface(std::string_view path, BusInterface interface) const;

  /// Takes a well-known name, without waiting for it and without taking it from its owner: fails
  /// with EEXIST when there is one.
  ErrorOrNone requestName(const std::string& name) const;
  void releaseName(const std::string& name) const;

  /// Whether somebody has the name now.
  Result<bool> nameHasOwner(const std::string& name) const;

  /// Through org.freedesktop.DBus.Properties; these do not start the program.
  Result<Value> getProperty(const BusAddress& address, std::string_view name,
                            TimeInterval timeout = kDefaultTimeout) const;
  Result<Dictionary> getAllProperties(const BusAddress& address,
                                      TimeInterval timeout = kDefaultTimeout) const;
  /// The value as one of the given signature.
  ErrorOrNone setProperty(const BusAddress& address, std::string_view name,
                          std::string_view signature, const Value& value,
                          TimeInterval timeout = kDefaultTimeout) const;

 private:
  BusConnection(LinuxRunLoop& loop, sd_bus* bus, bool waits)
      : loop_(loop), bus_(bus), waits_(waits) {}

  static Result<std::unique_ptr<BusConnection>> begin(LinuxRunLoop& loop,
                                                      const std::string& address, bool isTrusted,
                                                      bool waits);
  static Result<std::unique_ptr<BusConnection>> open(LinuxRunLoop& loop, const std::string& address,
                                                     bool isTrusted);
  static Result<std::unique_ptr<BusConnection>> becomeMonitor(
      Result<std::unique_ptr<BusConnection>> opened, const std::vector<std::string>& rules,
      Callback callback);

  /// Calls the task once that sd-bus itself tells of the connection.
  Result<BusSlot> matchLocal(std::string_view member, Task BusConnection::* told);

  LinuxRunLoop& loop_;
  sd_bus* bus_;
  bool waits_;
  std::string uniqueName_;
  Task connected_;
  Task disconnected_;
  BusSlot connectSlot_;
  BusSlot disconnectSlot_;
  BusSlot monitorSlot_;
};

}  // namespace wrixel2::platform::linux
