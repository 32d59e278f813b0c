#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "platform/Log.h"
#include "platform/MessageCenter.h"
#include "platform/linux/BusConnection.h"

namespace wrixel2::platform::linux {

/// A message center on the session bus: the center X.Y.Z is the bus name X.Y.Z with an object
/// /X/Y/Z, on which each message is a method of the interface X.Y.Z,
///
///     NAME(in a{sv} userInfo, out a{sv} reply)
///
/// A call that is no message of the center, or whose arguments are not of that form, gets the bus's
/// own error and a warning in the log; no handler sees it. Nothing sent here starts a program.
class SdBusMessageCenter final : public MessageCenter {
 public:
  static constexpr TimeInterval kReplyTimeout = std::chrono::seconds(2);

  /// The connection and the log outlive the center.
  SdBusMessageCenter(BusConnection& connection, Log& log, std::string_view name,
                     TimeInterval replyTimeout = kReplyTimeout);
  ~SdBusMessageCenter() override;

  ErrorOrNone runServer() override;
  void registerForMessageName(std::string_view name, Handler handler) override;
  void registerForMessageNameWithLaterReply(std::string_view name,
                                            LaterReplyingHandler handler) override;
  void sendMessageName(std::string_view name, const Dictionary& userInfo = {}) override;
  Result<std::unique_ptr<PendingAnswer>> sendMessageNameForAnswer(std::string_view name,
                                                                  const Dictionary& userInfo,
                                                                  AnswerHandler handler) override;
  Result<Dictionary> sendMessageAndReceiveReplyName(std::string_view name,
                                                    const Dictionary& userInfo = {}) override;

 private:
  using CallHandler = std::function<void(const BusMessage& call, const Dictionary& userInfo)>;

  void registerMethod(std::string_view name, CallHandler handler);
  void serve(const BusMessage& call, const CallHandler& handler) const;
  ErrorOrNone exportMessages();
  void exportAgain();
  void warnOfMisuse(const BusMessage& message) const;

  BusConnection& connection_;
  Logger logger_;
  BusAddress address_;
  TimeInterval replyTimeout_;
  std::map<std::string, CallHandler, std::less<>> messages_;
  bool isServing_ = false;
  BusSlot misuseFilter_;
  BusSlot interface_;
  std::unique_ptr<Timer> laterExport_;
};

}  // namespace wrixel2::platform::linux
