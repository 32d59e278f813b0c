#include "ctl/KeyCommand.h"

#include <string>
#include <utility>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "ctl/Json.h"
#include "ctl/KeyStore.h"
#include "ctl/PairingKey.h"
#include "ctl/Waiting.h"

namespace wrixel2::ctl {

namespace {

constexpr auto kCheckTime = std::chrono::seconds(60);

platform::Result<PairingKey> readKey(const Context& context, const std::string& source) {
  if (source != "-") {
    return PairingKey::fromPath(context.files, context.propertyLists, source);
  }
  const auto input = context.console.readInput();
  if (!input) {
    return input.error();
  }
  return PairingKey::fromText(*input);
}

/// Lets the daemon try the key, and tells what the band made of it: "accepted" or "refused".
platform::Result<std::string> verdictOf(const Context& context, Session& session) {
  std::string verdict;
  SessionEvents events;
  events.statusChanged = [&verdict](const platform::Dictionary& changed) {
    verdict = platform::textForKey(changed, "Authentication").value_or(verdict);
  };
  const auto waiting = Waiting::start(context, session, std::move(events));
  if (!waiting) {
    return waiting.error();
  }
  if (const auto error = session.post("org.corvale.wrixel2.keyChanged")) {
    return *error;
  }
  if (const auto error = (*waiting)->until(
          [&verdict] { return verdict == "accepted" || verdict == "refused"; }, kCheckTime,
          "Trying the key", "the band was not reached: the key will be tried when it is there")) {
    return *error;
  }
  return verdict;
}

}  // namespace

void KeyCommand::declare(CLI::App& program, const Choose& choose) {
  auto* command = program.add_subcommand("key", "Import and check the band's pairing key");
  command->require_subcommand(1);
  auto* import = command->add_subcommand(
      "import", "Take the pairing key over, and try it on the band if the daemon runs");
  import
      ->add_option("source", source_,
                   "a file with the key, the folder of the maker's app, or - for standard input")
      ->required()
      ->type_name("FILE|DIRECTORY|-");
  import->add_flag("--no-check", isUnchecked_, "do not try it on the band");
  import->callback(
      [this, choose] { choose([this](const Context& context) { return this->import(context); }); });
  auto* show = command->add_subcommand("show", "Show which key is there, by its fingerprint");
  show->add_flag("--reveal", isRevealed_, "show the key itself");
  show->callback(
      [this, choose] { choose([this](const Context& context) { return this->show(context); }); });
}

ExitStatus KeyCommand::import(const Context& context) const {
  const auto key = readKey(context, source_);
  if (!key) {
    return context.fail(ExitStatus::failed, key.error().localizedDescription);
  }
  if (!key->isUsual()) {
    context.console.complain("this key is not 32 hexadecimal digits; it is taken as it is");
  }
  KeyStore store(context.files, context.propertyLists, context.paths.miFit);
  if (const auto error = store.write(*key)) {
    return context.fail(ExitStatus::failed, error->localizedDescription);
  }
  if (!context.json) {
    context.console.print(fmt::format("Imported the key {}.\n", key->fingerprint()));
  }
  if (isUnchecked_) {
    return ExitStatus::done;
  }
  const auto session = context.openSessionWithDaemon();
  if (!session) {
    context.console.complain("the daemon does not run: the key will be tried when it does");
    return ExitStatus::done;
  }
  const auto verdict = verdictOf(context, **session);
  if (!verdict) {
    return context.fail(verdict.error());
  }
  if (*verdict == "refused") {
    return context.fail(ExitStatus::failed,
                        "the band refuses this key; was the band paired anew since? Then the "
                        "maker's app has another one");
  }
  context.console.print(context.json
                            ? jsonText(platform::Dictionary{{"fingerprint", key->fingerprint()},
                                                            {"authentication", *verdict}},
                                       JsonLayout::oneLine) +
                                  "\n"
                            : "The band accepts it.\n");
  return ExitStatus::done;
}

ExitStatus KeyCommand::show(const Context& context) const {
  const auto key = KeyStore(context.files, context.propertyLists, context.paths.miFit).key();
  if (!key) {
    return context.fail(ExitStatus::failed, key.error().localizedDescription);
  }
  if (context.json) {
    platform::Dictionary members{{"fingerprint", key->fingerprint()}};
    if (isRevealed_) {
      members.insert_or_assign("key", key->text());
    }
    context.console.print(jsonText(members, JsonLayout::oneLine) + "\n");
  } else {
    context.console.print((isRevealed_ ? key->text() : key->fingerprint()) + "\n");
  }
  return ExitStatus::done;
}

}  // namespace wrixel2::ctl
