#include "companion/BulletinOutbox.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

namespace wrixel2::companion {

using platform::Dictionary;
using platform::MessageCenter;

namespace {

/// Whether no daemon has seen what was sent.
bool isUndelivered(const platform::Error& error) {
  return error.code == MessageCenter::kNobodyServes || error.code == MessageCenter::kServerIsGone;
}

std::size_t bytesOf(const Dictionary& bulletin) {
  std::size_t bytes = 0;
  for (const auto& [key, value] : bulletin) {
    bytes += key.size() + (value.text() == nullptr ? 0 : value.text()->size());
  }
  return bytes;
}

}  // namespace

BulletinOutbox::BulletinOutbox(MessageCenter& daemon, const platform::Clock& clock,
                               platform::Log& log, BeforeSending beforeSending)
    : daemon_(daemon),
      clock_(clock),
      logger_(log, "BulletinOutbox"),
      beforeSending_(std::move(beforeSending)) {}

BulletinOutbox::~BulletinOutbox() {
  if (!waiting_.empty()) {
    logger_.warning(fmt::format("{} notifications had not been taken by the daemon at the end",
                                waiting_.size()));
  }
}

BulletinOutbox::Ticket BulletinOutbox::add(const std::string& sectionID, Dictionary bulletin) {
  dropOldOnes();
  const std::size_t bytes = bytesOf(bulletin);
  while (waiting_.size() > firstUnsent() &&
         (waiting_.size() == kMostWaiting || bytes_ + bytes > kMostBytes)) {
    drop(firstUnsent(), "too many wait for the daemon");
  }
  bytes_ += bytes;
  waiting_.push_back({++lastTicket_, sectionID, std::move(bulletin), clock_.monotonicNow(), bytes});
  const Ticket ticket = lastTicket_;
  sendNext();
  return ticket;
}

bool BulletinOutbox::takeBack(Ticket ticket) {
  const auto found = std::find_if(waiting_.begin(), waiting_.end(), [ticket](const Waiting& entry) {
    return entry.ticket == ticket;
  });
  if (found == waiting_.end()) {
    return true;
  }
  const auto index = static_cast<std::size_t>(found - waiting_.begin());
  if (index < firstUnsent()) {
    found->isTakenBack = true;
    return true;
  }
  drop(index, "it was over before the daemon could take it");
  return false;
}

void BulletinOutbox::resume() {
  isOpen_ = true;
  sendNext();
}

void BulletinOutbox::sendNext() {
  dropOldOnes();
  while (isOpen_ && !pending_ && !waiting_.empty()) {
    if (!sendFirst()) {
      drop(0, "it cannot be sent");
    }
  }
}

bool BulletinOutbox::sendFirst() {
  beforeSending_(waiting_.front().sectionID);
  auto sent = daemon_.sendMessageNameForAnswer(
      "bulletinRequest", waiting_.front().bulletin,
      [this](const platform::Result<Dictionary>& answer) { answered(answer); });
  if (!sent) {
    logger_.error(description(sent.error()));
    return false;
  }
  pending_ = std::move(*sent);
  return true;
}

void BulletinOutbox::answered(const platform::Result<Dictionary>& answer) {
  const auto finished = std::move(pending_);
  if (answer) {
    remove(0);
  } else if (!isUndelivered(answer.error())) {
    logger_.warning(description(answer.error()));
    drop(0, "the daemon refused it");
  } else {
    isOpen_ = false;
    if (waiting_.front().isTakenBack) {
      drop(0, "it was over before the daemon could take it");
    }
  }
  sendNext();
}

void BulletinOutbox::dropOldOnes() {
  const auto now = clock_.monotonicNow();
  while (waiting_.size() > firstUnsent() && now - waiting_[firstUnsent()].since > kLongestWait) {
    drop(firstUnsent(), "it waited too long for the daemon");
  }
}

void BulletinOutbox::drop(std::size_t index, const char* reason) {
  logger_.warning(fmt::format("Dropped a notification of {}: {} ({} dropped so far)",
                              waiting_[index].sectionID, reason, ++dropped_));
  remove(index);
}

void BulletinOutbox::remove(std::size_t index) {
  bytes_ -= waiting_[index].bytes;
  waiting_.erase(waiting_.begin() + static_cast<std::ptrdiff_t>(index));
}

}  // namespace wrixel2::companion
