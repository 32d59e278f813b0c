#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Log.h"
#include "platform/NotificationCenter.h"
#include "platform/linux/BusService.h"

namespace wrixel2::platform::linux {

/// What both notification centers are made of: a signal "Posted" whose first argument is the
/// notification's name, with observers by name.
///
/// A sandbox lets its program broadcast: signals are believed of one program alone, by the owner of
/// its name, and the bus filters by it and by the notification's name. Everybody else calls the
/// method Post with the same arguments, which a sandbox refuses. A posting of this process reaches
/// its own observers through the loop.
class SdBusPostings {
 public:
  /// Gets the signal's arguments, which have the signature.
  using Callback = UniqueFunction<void(const Array& arguments)>;

  /// The publisher, none where there is nobody to believe, is followed already. It, the connection
  /// and the log outlive this and its observations.
  SdBusPostings(BusConnection& connection, Log& log, std::string_view path,
                std::string_view interface, std::vector<ExportedArgument> arguments,
                BusService* publisher);

  std::unique_ptr<Observation> addObserver(std::string_view name, Callback callback);
  void post(Array arguments);

  /// Takes Post from here on, once: answered before the observers run, in the call's own turn.
  /// A name that has never been observed is an error to the caller; one that nobody observes at
  /// present has no effect.
  ErrorOrNone serveCallers();

 private:
  struct Observer;
  struct Group;
  class BusObservation;

  std::shared_ptr<Group> groupNamed(std::string_view name);
  void called(const BusMessage& call) const;

  BusConnection& connection_;
  Logger logger_;
  std::string path_;
  std::string interface_;
  std::vector<ExportedArgument> arguments_;
  BusService* publisher_;
  /// An entry for every name that has ever been observed.
  std::map<std::string, std::weak_ptr<Group>, std::less<>> groups_;
  BusSlot calls_;
};

}  // namespace wrixel2::platform::linux
