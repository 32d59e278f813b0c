#include "companion/AppNotification.h"

#include <algorithm>
#include <string_view>
#include <vector>

#include <fmt/format.h>

#include "companion/Markup.h"
#include "platform/Utf8.h"

namespace wrixel2::companion {

namespace {

using platform::Array;
using platform::Dictionary;
using platform::Error;
using platform::Result;

constexpr std::string_view kGnomeClocks = "org.gnome.clocks";
constexpr std::string_view kKClock = "org.kde.kclock";
constexpr std::string_view kAlarmSection = "com.apple.mobiletimer";
constexpr std::string_view kSnoozing = "Snoozing";

/// Other programs' words, at the length to which they are kept.
std::string identifier(std::string_view text) {
  return std::string(platform::utf8Prefix(text, platform::kLongestIdentifier));
}
std::string shortened(std::string_view text) {
  return std::string(platform::utf8Prefix(text, platform::kLongestText));
}

const std::string* textAt(const Array& arguments, std::size_t index) {
  return index < arguments.size() ? arguments[index].text() : nullptr;
}

/// An app with nothing to say in a place sends an empty text there.
std::optional<std::string> textOrNone(const std::string& text) {
  return text.empty() ? std::nullopt : std::optional(shortened(text));
}

std::string_view withoutSuffix(std::string_view text, std::string_view suffix) {
  if (text.ends_with(suffix)) {
    text.remove_suffix(suffix.size());
  }
  return text;
}

/// Instant messages ("im", "im.received") come from a person, whom the title names.
std::optional<std::string> senderOf(const Dictionary& details,
                                    const std::optional<std::string>& title) {
  const auto category = platform::textForKey(details, "category");
  const bool isMessage = category && (*category == "im" || category->starts_with("im."));
  return isMessage && title ? std::optional(identifier(*title)) : std::nullopt;
}

/// An action's name, which its target may follow: "app.stop-alarm::1", or "app.stop-alarm('1')".
bool isAction(std::string_view action, std::string_view name) {
  return action.starts_with(name) &&
         (action.size() == name.size() || action[name.size()] == ':' || action[name.size()] == '(');
}

AlarmPhase phaseByActions(const std::vector<std::string>& actions) {
  const auto has = [&actions](std::string_view name) {
    return std::any_of(actions.begin(), actions.end(),
                       [name](const std::string& action) { return isAction(action, name); });
  };
  if (!has("app.stop-alarm")) {
    return AlarmPhase::none;
  }
  return has("app.snooze-alarm") ? AlarmPhase::ringing : AlarmPhase::snoozing;
}

AlarmPhase phaseByEvent(const std::string& event) {
  if (event == "alarm") {
    return AlarmPhase::ringing;
  }
  const bool isSnooze = event.find("nooze") != std::string::npos;
  return isSnooze ? AlarmPhase::snoozing : AlarmPhase::none;
}

/// Actions come in pairs of a name and a label.
std::vector<std::string> actionsOf(const Array* pairs) {
  std::vector<std::string> actions;
  for (std::size_t i = 0; pairs != nullptr && i < pairs->size(); i += 2) {
    if (const std::string* action = (*pairs)[i].text()) {
      actions.push_back(*action);
    }
  }
  return actions;
}

std::vector<std::string> actionsOfButtons(const Dictionary& details) {
  std::vector<std::string> actions;
  const platform::Value* buttons = platform::find(details, "buttons");
  if (buttons == nullptr || buttons->array() == nullptr) {
    return actions;
  }
  for (const platform::Value& button : *buttons->array()) {
    if (button.dictionary() != nullptr) {
      actions.push_back(platform::textForKey(*button.dictionary(), "action").value_or(""));
    }
  }
  return actions;
}

/// Texts as they are compared: without markup, and with any blanks as one.
std::string normalized(const std::string& text) {
  std::string words;
  for (const char c : textWithoutMarkup(text)) {
    const bool isBlank = c == ' ' || c == '\n' || c == '\t' || c == '\r';
    if (!isBlank) {
      words.push_back(c);
    } else if (!words.empty() && words.back() != ' ') {
      words.push_back(' ');
    }
  }
  return std::string(withoutSuffix(words, " "));
}

std::optional<std::string> titleOf(const AppNotification& notification) {
  switch (notification.alarm) {
    case AlarmPhase::none:
      return notification.title;
    case AlarmPhase::snoozing:
      return std::string(kSnoozing);
    case AlarmPhase::ringing:
      break;
  }
  // One that its owner has called that would else not ring.
  return notification.title && *notification.title != kSnoozing ? *notification.title : "Alarm";
}

Result<AppNotification> notificationNamedByItsApp(const Array& arguments) {
  const std::string* app = textAt(arguments, 0);
  const std::string* name = textAt(arguments, 1);
  const Dictionary* details = arguments.size() > 2 ? arguments[2].dictionary() : nullptr;
  if (app == nullptr || name == nullptr || details == nullptr) {
    return Error{0, "the arguments are not those of AddNotification"};
  }
  AppNotification notification;
  notification.app = identifier(*app);
  notification.title = textOrNone(platform::textForKey(*details, "title").value_or(""));
  notification.body = shortened(platform::textForKey(*details, "body").value_or(""));
  notification.sender = senderOf(*details, notification.title);
  notification.handle = handleOfName(*app, *name);
  if (notification.app == kGnomeClocks) {
    notification.alarm = phaseByActions(actionsOfButtons(*details));
  }
  return notification;
}

}  // namespace

std::string AppNotification::replacedHandle() const {
  return replacedId == 0 ? std::string() : handleOfNumber(replacedId);
}

bool AppNotification::saysTheSame(const AppNotification& other) const {
  return normalized(title.value_or("")) == normalized(other.title.value_or("")) &&
         normalized(body) == normalized(other.body);
}

std::string handleOfName(std::string_view app, std::string_view name) {
  return fmt::format("name {} {}", identifier(app), identifier(name));
}

std::string handleOfNumber(std::int64_t number) { return fmt::format("number {}", number); }

std::string handleOfCall(std::string_view caller, std::uint64_t cookie) {
  return fmt::format("call {} {}", caller, cookie);
}

Result<AppNotification> notificationFromNotify(const Array& arguments) {
  const std::string* appName = textAt(arguments, 0);
  const std::string* summary = textAt(arguments, 3);
  const std::string* body = textAt(arguments, 4);
  const Dictionary* hints = arguments.size() > 6 ? arguments[6].dictionary() : nullptr;
  if (appName == nullptr || summary == nullptr || body == nullptr || hints == nullptr) {
    return Error{0, "the arguments are not those of Notify"};
  }
  AppNotification notification;
  const auto desktopEntry = platform::textForKey(*hints, "desktop-entry");
  notification.app = identifier(
      desktopEntry && !desktopEntry->empty() ? withoutSuffix(*desktopEntry, ".desktop") : *appName);
  notification.title = textOrNone(*summary);
  notification.body = textWithoutMarkup(shortened(*body));
  notification.sender = senderOf(*hints, notification.title);
  notification.isTransient = platform::boolForKey(*hints, "transient");
  notification.replacedId = arguments[1].longValue();
  notification.appName = identifier(*appName);
  if (notification.app == kGnomeClocks) {
    notification.alarm = phaseByActions(actionsOf(arguments[5].array()));
  } else if (notification.app == kKClock) {
    notification.alarm = phaseByEvent(platform::textForKey(*hints, "x-kde-eventId").value_or(""));
  }
  return notification;
}

Result<AppNotification> notificationFromAddNotification(const Array& arguments) {
  return notificationNamedByItsApp(arguments);
}

Result<AppNotification> notificationFromPortal(const Array& arguments) {
  auto notification = notificationNamedByItsApp(arguments);
  if (notification && notification->body.empty()) {
    notification->body = textWithoutMarkup(
        shortened(platform::textForKey(*arguments[2].dictionary(), "markup-body").value_or("")));
  }
  return notification;
}

std::string sectionOf(const AppNotification& notification) {
  return notification.alarm == AlarmPhase::none ? notification.app : std::string(kAlarmSection);
}

Dictionary bulletinUserInfo(const AppNotification& notification) {
  Dictionary userInfo{{"sectionID", sectionOf(notification)}, {"message", notification.body}};
  if (const auto title = titleOf(notification)) {
    userInfo.emplace("title", *title);
  }
  if (notification.sender) {
    userInfo.emplace("sender", *notification.sender);
  }
  return userInfo;
}

}  // namespace wrixel2::companion
