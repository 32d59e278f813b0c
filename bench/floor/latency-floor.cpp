/// latency-floor NAME [PATH]: the least that a message from the session bus to a write on the
/// system bus can cost. It takes the name and, until it is killed, serves two messages with the
/// arguments and the answers of the daemon's:
///
/// - phoneCall writes its text, behind the two bytes of an icon, to the characteristic at PATH;
/// - bulletinRequest is read and nothing more.

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

namespace {

struct Floor {
  sd_bus* systemBus = nullptr;
  std::string characteristic;
};

/// Reads every entry; returns the one under the key.
std::string textUnder(std::string_view wanted, sd_bus_message* call) {
  std::string found;
  sd_bus_message_enter_container(call, 'a', "{sv}");
  while (sd_bus_message_enter_container(call, 'e', "sv") > 0) {
    const char* key = nullptr;
    const char* type = nullptr;
    sd_bus_message_read_basic(call, 's', &key);
    sd_bus_message_peek_type(call, nullptr, &type);
    if (std::string_view(type) == "s") {
      const char* value = nullptr;
      sd_bus_message_read(call, "v", "s", &value);
      if (wanted == key) {
        found = value;
      }
    } else {
      sd_bus_message_skip(call, "v");
    }
    sd_bus_message_exit_container(call);
  }
  sd_bus_message_exit_container(call);
  return found;
}

int ignoreAnswer(sd_bus_message* /*answer*/, void* /*userdata*/, sd_bus_error* /*error*/) {
  return 0;
}

void write(const Floor& floor, const std::string& text) {
  const std::string value = "\x03\x01" + text;
  sd_bus_message* call = nullptr;
  sd_bus_message_new_method_call(floor.systemBus, &call, "org.bluez", floor.characteristic.c_str(),
                                 "org.bluez.GattCharacteristic1", "WriteValue");
  sd_bus_message_append_array(call, 'y', value.data(), value.size());
  sd_bus_message_append(call, "a{sv}", 1, "type", "s", "request");
  sd_bus_call_async(floor.systemBus, nullptr, call, ignoreAnswer, nullptr, 0);
  sd_bus_message_unref(call);
}

int phoneCall(sd_bus_message* call, void* userdata, sd_bus_error* /*error*/) {
  sd_bus_reply_method_return(call, "a{sv}", 0);
  write(*static_cast<const Floor*>(userdata), textUnder("text", call));
  return 1;
}

int bulletinRequest(sd_bus_message* call, void* /*userdata*/, sd_bus_error* /*error*/) {
  sd_bus_reply_method_return(call, "a{sv}", 0);
  textUnder("message", call);
  return 1;
}

const sd_bus_vtable kMessages[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("phoneCall", "a{sv}", "a{sv}", phoneCall, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("bulletinRequest", "a{sv}", "a{sv}", bulletinRequest, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fputs("latency-floor: the name to take is needed\n", stderr);
    return 2;
  }
  const char* name = argv[1];
  Floor floor;
  sd_event* event = nullptr;
  sd_bus* bus = nullptr;
  if (sd_event_default(&event) < 0 || sd_bus_open_user(&bus) < 0 ||
      sd_bus_attach_event(bus, event, SD_EVENT_PRIORITY_NORMAL) < 0) {
    return 1;
  }
  if (argc > 2) {
    floor.characteristic = argv[2];
    if (sd_bus_open_system(&floor.systemBus) < 0 ||
        sd_bus_attach_event(floor.systemBus, event, SD_EVENT_PRIORITY_NORMAL) < 0) {
      return 1;
    }
  }
  const bool isServing =
      sd_bus_add_object_vtable(bus, nullptr, "/floor", name, kMessages, &floor) >= 0 &&
      sd_bus_request_name(bus, name, 0) >= 0;
  return isServing && sd_event_loop(event) >= 0 ? 0 : 1;
}
