#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "platform/Log.h"
#include "platform/NotificationCenter.h"
#include "platform/linux/BusConnection.h"

namespace wrixel2::platform::linux {

/// What both notification centers are made of: a signal "Posted" whose first argument is the
/// notification's name, with observers by name.
///
/// The bus filters by name. A posting of this process reaches its own observers through the loop;
/// the copy that the bus hands back is ignored. A signal with other arguments is dropped with a
/// warning.
class SdBusPostings {
 public:
  /// Gets the signal's arguments, which have the signature.
  using Callback = UniqueFunction<void(const Array& arguments)>;

  /// The connection and the log outlive this and its observations.
  SdBusPostings(BusConnection& connection, Log& log, std::string_view path,
                std::string_view interface, std::string_view signature);

  std::unique_ptr<Observation> addObserver(std::string_view name, Callback callback);
  void post(Array arguments);

 private:
  struct Observer;
  struct Group;
  class BusObservation;

  std::shared_ptr<Group> groupNamed(std::string_view name);

  BusConnection& connection_;
  Logger logger_;
  std::string path_;
  std::string interface_;
  std::string signature_;
  std::map<std::string, std::weak_ptr<Group>, std::less<>> groups_;
};

}  // namespace wrixel2::platform::linux
