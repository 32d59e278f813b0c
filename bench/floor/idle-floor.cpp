/// idle-floor NAME: the least that a daemon on the session bus can be. It takes the name and serves
/// one method, until it is killed. What it costs, no daemon of this kind is without.

#include <cstdio>
#include <string>

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

namespace {

int serve(sd_bus_message* call, void* /*userdata*/, sd_bus_error* /*error*/) {
  const std::string answer(sd_bus_message_get_member(call));
  return sd_bus_reply_method_return(call, "s", answer.c_str());
}

const sd_bus_vtable kMethods[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Serve", "", "s", serve, 0),
    SD_BUS_VTABLE_END,
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fputs("idle-floor: the name to take is needed\n", stderr);
    return 2;
  }
  sd_event* event = nullptr;
  sd_bus* bus = nullptr;
  const bool isServing =
      sd_event_default(&event) >= 0 && sd_bus_open_user(&bus) >= 0 &&
      sd_bus_attach_event(bus, event, SD_EVENT_PRIORITY_NORMAL) >= 0 &&
      sd_bus_add_object_vtable(bus, nullptr, "/floor", argv[1], kMethods, nullptr) >= 0 &&
      sd_bus_request_name(bus, argv[1], 0) >= 0;
  return isServing && sd_event_loop(event) >= 0 ? 0 : 1;
}
