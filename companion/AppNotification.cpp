#include "companion/AppNotification.h"

#include <string_view>

#include "companion/Markup.h"

namespace wrixel2::companion {

namespace {

using platform::Array;
using platform::Dictionary;
using platform::Error;
using platform::Result;

const std::string* textAt(const Array& arguments, std::size_t index) {
  return index < arguments.size() ? arguments[index].text() : nullptr;
}

/// An app with nothing to say in a place sends an empty text there.
std::optional<std::string> textOrNone(const std::string& text) {
  return text.empty() ? std::nullopt : std::optional(text);
}

std::string withoutSuffix(std::string text, std::string_view suffix) {
  if (text.ends_with(suffix)) {
    text.resize(text.size() - suffix.size());
  }
  return text;
}

/// Instant messages ("im", "im.received") come from a person, whom the title names.
std::optional<std::string> senderOf(const Dictionary& details,
                                    const std::optional<std::string>& title) {
  const auto category = platform::textForKey(details, "category");
  const bool isMessage = category && (*category == "im" || category->starts_with("im."));
  return isMessage ? title : std::nullopt;
}

}  // namespace

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
  notification.app =
      desktopEntry && !desktopEntry->empty() ? withoutSuffix(*desktopEntry, ".desktop") : *appName;
  notification.title = textOrNone(*summary);
  notification.body = textWithoutMarkup(*body);
  notification.sender = senderOf(*hints, notification.title);
  notification.isTransient = platform::boolForKey(*hints, "transient");
  notification.replacedId = arguments[1].longValue();
  return notification;
}

Result<AppNotification> notificationFromAddNotification(const Array& arguments) {
  const std::string* app = textAt(arguments, 0);
  const Dictionary* details = arguments.size() > 2 ? arguments[2].dictionary() : nullptr;
  if (app == nullptr || details == nullptr) {
    return Error{0, "the arguments are not those of AddNotification"};
  }
  AppNotification notification;
  notification.app = *app;
  notification.title = textOrNone(platform::textForKey(*details, "title").value_or(""));
  notification.body = platform::textForKey(*details, "body").value_or("");
  notification.sender = senderOf(*details, notification.title);
  return notification;
}

Dictionary bulletinUserInfo(const AppNotification& notification) {
  Dictionary userInfo{{"sectionID", notification.app}, {"message", notification.body}};
  if (notification.title) {
    userInfo.emplace("title", *notification.title);
  }
  if (notification.sender) {
    userInfo.emplace("sender", *notification.sender);
  }
  return userInfo;
}

}  // namespace wrixel2::companion
