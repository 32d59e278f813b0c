#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "platform/MessageCenter.h"
#include "platform/RunLoop.h"

namespace wrixel2::platform::simulated {

class SimulatedClock;
class SimulatedMessageCenter;

/// A message as it was sent, whether anybody serves the center or not.
struct SentMessage {
  std::string center;
  std::string name;
  Dictionary userInfo;
  bool wantsReply = false;
};

/// Message centers inside one process, which stands for all programs of the session: any number of
/// centers of one name, of which one serves.
///
/// A message without a reply is handled in a turn of its own; one whose sender waits is handled
/// inside the sending call, as if by another program; for that one, an answer that the handler does
/// not give in the same turn comes too late.
class SimulatedMessageCenters final : public MessageCenters {
 public:
  /// Both are borrowed; the centers made here must not outlive this object.
  SimulatedMessageCenters(RunLoop& loop, SimulatedClock& clock) : loop_(loop), clock_(clock) {}

  std::unique_ptr<MessageCenter> centerNamed(std::string_view name) override;

  /// Everything that was sent, in order.
  const std::vector<SentMessage>& sentMessages() const { return sent_; }
  std::vector<SentMessage> sentMessages(std::string_view name) const;
  void clearSentMessages() { sent_.clear(); }

  /// The program behind the center does not answer any more: who waits for a reply of it gets an
  /// error after two (virtual) seconds; messages without a reply are lost; those sent for an answer
  /// stay with it, until it goes on or (its center being destroyed) ends.
  void setHanging(std::string_view center, bool isHanging);
  /// Another program has the name: runServer fails.
  void setTaken(std::string_view center, bool isTaken);
  bool isServed(std::string_view center) const;

 private:
  friend class SimulatedMessageCenter;

  void deliverHeld(std::string_view center);

  RunLoop& loop_;
  SimulatedClock& clock_;
  std::map<std::string, SimulatedMessageCenter*, std::less<>> servers_;
  std::set<std::string, std::less<>> hanging_;
  std::set<std::string, std::less<>> taken_;
  std::map<std::string, std::vector<Task>, std::less<>> held_;
  std::vector<SentMessage> sent_;
};

/// One program's end of a center.
class SimulatedMessageCenter final : public MessageCenter {
 public:
  SimulatedMessageCenter(SimulatedMessageCenters& centers, std::string_view name);
  SimulatedMessageCenter(const SimulatedMessageCenter&) = delete;
  SimulatedMessageCenter& operator=(const SimulatedMessageCenter&) = delete;
  ~SimulatedMessageCenter() override;

  ErrorOrNone runServer() override;
  void registerForMessageName(std::string_view name, Handler handler) override;
  void registerForMessageNameWithLaterReply(std::string_view name,
                                            LaterReplyingHandler handler) override;
  void sendMessageName(std::string_view name, const Dictionary& userInfo) override;
  Result<std::unique_ptr<PendingAnswer>> sendMessageNameForAnswer(std::string_view name,
                                                                  const Dictionary& userInfo,
                                                                  AnswerHandler handler) override;
  Result<Dictionary> sendMessageAndReceiveReplyName(std::string_view name,
                                                    const Dictionary& userInfo) override;

 private:
  /// What a message name leads to; one of the two. Shared so that a handler may replace itself or
  /// destroy its center.
  struct Registration {
    Handler handler;
    LaterReplyingHandler replyingHandler;
  };

  SimulatedMessageCenter* server() const;
  /// The server's turn with a message that was sent for an answer.
  static void serve(const std::weak_ptr<Registration>& weak, const std::string& message,
                    const Dictionary& userInfo, Reply answer);
  static void handleLater(RunLoop& loop, SimulatedMessageCenter& server, std::string_view name,
                          const Dictionary& userInfo);

  SimulatedMessageCenters& centers_;
  std::string name_;
  std::map<std::string, std::shared_ptr<Registration>, std::less<>> registrations_;
};

}  // namespace wrixel2::platform::simulated
