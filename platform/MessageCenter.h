#pragma once

#include <cerrno>
#include <memory>
#include <string_view>
#include <utility>

#include "platform/Result.h"
#include "platform/UniqueFunction.h"
#include "platform/Value.h"

namespace wrixel2::platform {

/// A message whose answer is still to come. Destroying it drops the answer, not the message.
class PendingAnswer {
 public:
  virtual ~PendingAnswer() = default;
};

/// A named center through which programs send each other messages: a name and a dictionary.
///
/// One that serves (runServer) answers for its name; any other is a way to the program that does.
/// Messages and notifications that reach the process over one connection are handled in the order
/// in which they came.
class MessageCenter {
 public:
  using Handler = UniqueFunction<void(std::string_view name, const Dictionary& userInfo)>;
  using ReplyingHandler =
      UniqueFunction<Result<Dictionary>(std::string_view name, const Dictionary& userInfo)>;
  /// Called at most once, in this turn or a later one; the sender waits until then.
  using Reply = UniqueFunction<void(const Result<Dictionary>& answer)>;
  using LaterReplyingHandler =
      UniqueFunction<void(std::string_view name, const Dictionary& userInfo, Reply reply)>;

  using AnswerHandler = UniqueFunction<void(const Result<Dictionary>& answer)>;

  /// What an answer's error says of the message: nobody serves the center, or who served it went
  /// without having answered. In both cases no handler has seen the message. Any other code is the
  /// server's own refusal.
  static constexpr long kNobodyServes = ESRCH;
  static constexpr long kServerIsGone = ECONNRESET;

  virtual ~MessageCenter() = default;

  /// Takes the center's name and serves it on the main loop. Fails when another program has it.
  virtual ErrorOrNone runServer() = 0;

  /// A message without a reply: the sender is answered (emptily) before the handler runs.
  virtual void registerForMessageName(std::string_view name, Handler handler) = 0;
  /// A message whose sender waits for what the handler returns; an error reaches it as one.
  void registerForMessageNameWithReply(std::string_view name, ReplyingHandler handler) {
    registerForMessageNameWithLaterReply(
        name,
        [handler = std::move(handler)](std::string_view message, const Dictionary& userInfo,
                                       const Reply& reply) { reply(handler(message, userInfo)); });
  }
  /// The same for a handler that has to wait for its answer.
  virtual void registerForMessageNameWithLaterReply(std::string_view name,
                                                    LaterReplyingHandler handler) = 0;

  /// Sends and forgets. Nobody serving the center is not an error.
  virtual void sendMessageName(std::string_view name, const Dictionary& userInfo = {}) = 0;

  /// Sends, without waiting, and calls back in a later turn with the answer; however late that is,
  /// there is no time limit. The handler is called at most once and may destroy what this returned.
  /// Fails, and calls nothing, where the message cannot be sent at all.
  [[nodiscard]] virtual Result<std::unique_ptr<PendingAnswer>> sendMessageNameForAnswer(
      std::string_view name, const Dictionary& userInfo, AnswerHandler handler) = 0;

  /// Sends and waits for the reply, at most two seconds; what arrives meanwhile waits in order.
  /// Nobody serving the center fails at once.
  virtual Result<Dictionary> sendMessageAndReceiveReplyName(std::string_view name,
                                                            const Dictionary& userInfo = {}) = 0;
};

/// Makes the centers of one process.
class MessageCenters {
 public:
  virtual ~MessageCenters() = default;
  virtual std::unique_ptr<MessageCenter> centerNamed(std::string_view name) = 0;
};

}  // namespace wrixel2::platform
