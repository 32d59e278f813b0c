"""What the scenarios play on: emulated controllers, bluetoothd, two bands, the daemon, and the
companion's and the owner's parts, which this program plays itself."""

import os
import shutil
import signal
import subprocess
import time

import dbus
import dbus.lowlevel
import dbus.mainloop.glib
import dbus.service
from gi.repository import GLib

RESULTS = "/run/results"
STATE = "/run/state"
CONF = os.path.join(os.path.dirname(os.path.abspath(__file__)), "bluetoothd.conf")

BAND = "org.corvale.wrixel2.VirtualBand"
BAND_PATH = "/org/corvale/wrixel2/VirtualBand"
DAEMON = "org.corvale.wrixel2dIpc"
COMPANION = "org.corvale.wrixel2Ipc"
DARWIN = "org.corvale.NotifyCenter"
DISTRIBUTED = "org.corvale.DistributedNotificationCenter"

KEY = "0123456789abcdef0123456789abcdef"


class Failure(Exception):
    """What the scenario expected and did not see."""


def short(uuid):
    """2a06 for 00002a06-0000-..., 09 for the maker's own 00000009-0000-3512-..."""
    return uuid[4:8] if uuid.endswith("-0000-1000-8000-00805f9b34fb") else uuid[6:8]


def wait(condition, seconds, what):
    """Serves the buses until the condition holds, and returns what it gave."""
    context = GLib.MainContext.default()
    deadline = time.monotonic() + seconds
    wake = GLib.timeout_add(20, lambda: True)  # a condition may also watch a file or a process
    try:
        while True:
            result = condition()
            if result:
                return result
            if time.monotonic() > deadline:
                raise Failure(f"within {seconds} s: {what() if callable(what) else what}")
            context.iteration(True)
    finally:
        GLib.source_remove(wake)


def linger(seconds):
    """Lets time pass, for what must not happen or takes its time by design."""
    end = time.monotonic() + seconds
    wait(lambda: time.monotonic() >= end, seconds + 10, "time to pass")


def variants(values):
    return dbus.Dictionary(values, signature="sv")


class Process:
    """A program of the stage, with its output in a log of its own."""

    def __init__(self, name, command, **environment):
        self.name = name
        self.command = command
        self.environment = environment
        self.path = os.path.join(RESULTS, name + ".log")
        self.process = None

    def start(self):
        with open(self.path, "ab") as log:
            self.process = subprocess.Popen(
                self.command, stdin=subprocess.DEVNULL, stdout=log, stderr=log,
                env={**os.environ, **self.environment})

    def is_running(self):
        return self.process is not None and self.process.poll() is None

    def end(self, how=signal.SIGTERM):
        """Returns the exit status, None if it was not running."""
        if not self.is_running():
            return None
        self.process.send_signal(how)
        return self.process.wait(20)


class Band:
    """A band program on a session bus of its own choice, and what it received."""

    def __init__(self, name, program, adapter, bus, address):
        self.bus = bus
        self.process = Process(name, [program, "--adapter", adapter],
                               DBUS_SESSION_BUS_ADDRESS=address)
        self.address = None
        self.link = "disconnected"
        self.links = []  # the states since the last clear()
        self.writes = []  # (characteristic, bytes as hexadecimal text, "request" or "command")
        self.displays = []
        self.vibrations = []
        self.on_write = None  # called with each write
        bus.add_signal_receiver(self._written, "Written", BAND)
        bus.add_signal_receiver(
            lambda text, icon: self.displays.append((str(text), bytes(icon).hex())),
            "Displayed", BAND)
        bus.add_signal_receiver(
            lambda on, off, count: self.vibrations.append((int(on), int(off), int(count))),
            "Vibrated", BAND)
        bus.add_signal_receiver(self._changed, "PropertiesChanged", dbus.PROPERTIES_IFACE,
                                path=BAND_PATH)

    def start(self):
        self.process.start()
        wait(lambda: "The band's services can be found" in open(self.process.path).read(), 30,
             f"{self.process.name} is on the air")
        self.address = str(self.get("Address"))

    def _written(self, _service, characteristic, value, kind):
        self.writes.append((short(characteristic), bytes(value).hex(), str(kind)))
        if self.on_write:
            self.on_write(self.writes[-1])

    def _changed(self, _interface, changed, _invalidated):
        if "Link" in changed:
            self.link = str(changed["Link"])
            self.links.append(self.link)

    def _object(self, interface):
        return dbus.Interface(self.bus.get_object(BAND, BAND_PATH, introspect=False), interface)

    def get(self, name):
        return self._object(dbus.PROPERTIES_IFACE).Get(BAND, name)

    def set(self, name, value):
        self._object(dbus.PROPERTIES_IFACE).Set(BAND, name, value, signature="ssv")

    def call(self, name, *arguments):
        self._object(BAND).get_dbus_method(name)(*arguments)

    def clear(self):
        self.links.clear()
        self.writes.clear()
        self.displays.clear()
        self.vibrations.clear()

    def written(self, characteristic):
        return [value for uuid, value, _ in self.writes if uuid == characteristic]

    def await_link(self, link, seconds=40):
        wait(lambda: self.link == link, seconds,
             lambda: f"{self.process.name} is {link} (it is {self.link})")

    def await_writes(self, expected, seconds=20):
        """Exactly these, in this order, and nothing else since the last clear()."""
        wait(lambda: len(self.writes) >= len(expected), seconds,
             lambda: f"{len(expected)} writes, not {self.writes}")
        if self.writes != expected:
            raise Failure(f"writes {expected}, not {self.writes}")


class Companion(dbus.service.Object):
    """The shell companion as the daemon knows it: settings out, reports in."""

    def __init__(self, bus):
        self.settings = {}
        self.said = []  # (message, user info)
        self.name = dbus.service.BusName(COMPANION, bus)
        super().__init__(bus, "/" + COMPANION.replace(".", "/"))

    def _heard(self, message, info):
        self.said.append((message, {str(key): value for key, value in info.items()}))
        return variants({})

    @dbus.service.method(COMPANION, in_signature="a{sv}", out_signature="a{sv}")
    def getPrefsDict(self, _info):
        return variants(self.settings)

    @dbus.service.method(COMPANION, in_signature="a{sv}", out_signature="a{sv}")
    def appInfo(self, _info):
        return variants({"MiFitBasePath": STATE + "/MiFit"})

    @dbus.service.method(COMPANION, in_signature="a{sv}", out_signature="a{sv}")
    def alertUser(self, info):
        return self._heard("alertUser", info)

    @dbus.service.method(COMPANION, in_signature="a{sv}", out_signature="a{sv}")
    def writeHeartRate(self, info):
        return self._heard("writeHeartRate", info)

    @dbus.service.method(COMPANION, in_signature="a{sv}", out_signature="a{sv}")
    def buttonPressed(self, info):
        return self._heard("buttonPressed", info)

    def of(self, message):
        return [info for name, info in self.said if name == message]

    def alerts(self):
        return [(str(info["title"]), str(info["message"])) for info in self.of("alertUser")]


class Stage:
    def __init__(self, programs):
        dbus.mainloop.glib.DBusGMainLoop(set_as_default=True)
        self.programs = programs
        self.emulator = Process("btvirt", ["btvirt", "-L", "-l3"])
        self.monitor = Process("btmon", ["btmon", "-w", RESULTS + "/trace.btsnoop"])
        self.bus_monitor = Process("system-bus", ["dbus-monitor", "--system"])
        self.bluetoothd = Process("bluetoothd", ["bluetoothd", "-n", "-f", CONF])
        self.buses = []
        self.log_mark = 0

    def build(self):
        self._lay_out_keys()
        address, other = self._session_bus("session"), self._session_bus("other")
        self.monitor.start()
        self.bus_monitor.start()
        self.system = dbus.SystemBus()
        self._start_emulator()
        self.bus = dbus.bus.BusConnection(address)
        self.bus.set_exit_on_disconnect(False)
        self.companion = Companion(self.bus)
        self.posted = []  # distributed notifications: (name, user info)
        self.bus.add_signal_receiver(
            lambda name, _object, info: self.posted.append((str(name), dict(info))),
            "Posted", DISTRIBUTED)
        band = os.path.join(self.programs, "wrixel2-band")
        self.band = Band("band", band, "hci1", self.bus, address)
        self.stranger = Band("stranger", band, "hci2", dbus.bus.BusConnection(other), other)
        self.daemon = Process(
            "wrixel2d",
            [os.path.join(self.programs, "wrixel2d"), "--adapter", "hci0", "--log", "stderr"],
            DBUS_SESSION_BUS_ADDRESS=address, XDG_STATE_HOME=STATE + "/state",
            XDG_DATA_HOME=STATE + "/data")
        self.band.start()
        self.stranger.start()
        self.stranger.set("InRange", False)

    def _lay_out_keys(self):
        shutil.rmtree(STATE, ignore_errors=True)
        preferences = STATE + "/MiFit/Library/Preferences"
        os.makedirs(preferences + "/1234567")
        with open(preferences + "/1234567/BandInfoConfigStore.plist", "w") as file:
            file.write('<?xml version="1.0" encoding="UTF-8"?>\n<plist version="1.0"><dict>'
                       f"<key>band_bind_auth_key</key><string>{KEY}</string></dict></plist>\n")

    def _start_emulator(self):
        """On a busy machine the emulator may be too late for the kernel's two seconds, and the
        controller is dead: nothing has been tested yet, so it is begun again."""
        for attempt in range(3):
            self.emulator.start()
            try:
                self.start_bluetoothd()
                return
            except Failure:
                self.bluetoothd.end()
                self.emulator.end(signal.SIGKILL)
        raise Failure("the emulated controllers work")

    def _session_bus(self, name):
        address = f"unix:path=/run/{name}"
        bus = Process("dbus-" + name, ["dbus-daemon", "--session", "--nofork",
                                       "--address=" + address])
        bus.start()
        wait(lambda: os.path.exists(f"/run/{name}"), 20, f"the bus '{name}'")
        self.buses.append(bus)
        return address

    # --- bluetoothd ---

    def start_bluetoothd(self):
        self.bluetoothd.start()
        wait(lambda: all(self.is_powered(n) for n in range(3)), 25, "three adapters with power")

    def adapter(self, number, interface="org.bluez.Adapter1"):
        return dbus.Interface(
            self.system.get_object("org.bluez", f"/org/bluez/hci{number}", introspect=False),
            interface)

    def is_powered(self, number):
        try:
            return bool(self.adapter(number, dbus.PROPERTIES_IFACE).Get("org.bluez.Adapter1",
                                                                        "Powered"))
        except dbus.DBusException:
            return False

    def is_discovering(self, number):
        return bool(self.adapter(number, dbus.PROPERTIES_IFACE).Get("org.bluez.Adapter1",
                                                                    "Discovering"))

    def set_powered(self, number, powered):
        self.adapter(number, dbus.PROPERTIES_IFACE).Set(
            "org.bluez.Adapter1", "Powered", powered, signature="ssv")

    def forget_devices(self):
        """As on the first day: the adapter of the daemon knows no device."""
        manager = dbus.Interface(self.system.get_object("org.bluez", "/", introspect=False),
                                 "org.freedesktop.DBus.ObjectManager")
        for path in manager.GetManagedObjects():
            if path.startswith("/org/bluez/hci0/dev_") and path.count("/") == 4:
                self.adapter(0).RemoveDevice(path)

    def device(self, band, interface="org.bluez.Device1"):
        path = "/org/bluez/hci0/dev_" + band.address.upper().replace(":", "_")
        return dbus.Interface(self.system.get_object("org.bluez", path, introspect=False),
                              interface)

    # --- the daemon ---

    def tell(self, message, /, **info):
        """A message to the daemon; nobody waits for the answer."""
        call = dbus.lowlevel.MethodCallMessage(DAEMON, "/" + DAEMON.replace(".", "/"), DAEMON,
                                               message)
        call.append(variants(info), signature="a{sv}")
        call.set_no_reply(True)
        self.bus.send_message(call)

    def post(self, name):
        call = dbus.lowlevel.MethodCallMessage(DAEMON, "/" + DARWIN.replace(".", "/"), DARWIN,
                                               "Post")
        call.append(name, signature="s")
        call.set_no_reply(True)
        self.bus.send_message(call)

    def change_settings(self, suffix="", **settings):
        self.companion.settings.update(settings)
        self.post("org.corvale.wrixel2prefs.preferencechanged" + suffix)

    def log(self):
        """What the daemon has logged since the last clear()."""
        with open(self.daemon.path, "rb") as file:
            file.seek(self.log_mark)
            return file.read().decode()

    def await_log(self, text, seconds=20):
        wait(lambda: text in self.log(), seconds, lambda: f"'{text}' in the log: {self.log()}")

    def clear(self):
        self.band.clear()
        self.stranger.clear()
        self.companion.said.clear()
        self.posted.clear()
        if os.path.exists(self.daemon.path):
            self.log_mark = os.path.getsize(self.daemon.path)

    def start_daemon(self):
        self.daemon.start()
        wait(lambda: self.bus.name_has_owner(DAEMON) or not self.daemon.is_running(), 20,
             "the daemon is on the bus")
        if not self.daemon.is_running():
            raise Failure(f"the daemon runs: {self.log()}")
        self.tell("letUsStart")

    def reset(self):
        """Everything but bluetoothd as on the first day, with one band in the air."""
        self.daemon.end(signal.SIGKILL)
        for band in (self.band, self.stranger):
            band.on_write = None
            band.set("InRange", band is self.band)
        shutil.rmtree(STATE + "/state", ignore_errors=True)
        self.companion.settings.clear()
        self.forget_devices()
        for band in (self.band, self.stranger):
            band.await_link("disconnected")
        self.band.set("PairingKey", KEY)
        self.band.call("RefuseAuthentication", dbus.UInt32(0))
        self.clear()

    def status(self, name):
        """One of the properties in which the daemon shows its state."""
        daemon = self.bus.get_object(DAEMON, "/" + DAEMON.replace(".", "/"), introspect=False)
        return dbus.Interface(daemon, dbus.PROPERTIES_IFACE).Get(
            "org.corvale.wrixel2d.Status", name)

    def wakeups(self):
        """How often the daemon has slept and was woken."""
        with open(f"/proc/{self.daemon.process.pid}/status") as file:
            return next(int(line.split()[1]) for line in file
                        if line.startswith("voluntary_ctxt_switches"))

    def in_service(self):
        """A daemon that has authenticated itself with the band, and is quiet."""
        if not (self.daemon.is_running() and self.band.link == "authenticated"):
            self.reset()
            self.start_daemon()
            self.band.await_link("authenticated")
        wait(lambda: self.status("Initialized") and self.status("Battery"), 40,
             "the daemon knows the band and its battery")
        linger(0.5)
        self.clear()

    def let_go(self):
        """Makes the daemon end the link, as it does when it is switched off, and know the band
        still."""
        self.in_service()
        self.change_settings(enabled=False)
        self.band.await_link("disconnected")
        self.change_settings(enabled=True)
        linger(1)
        self.clear()

    def app(self, name, icon, pattern=0, repeat=0, preview=False):
        """Gives an app its own alert."""
        self.change_settings("/hk", **{"MBIcon-" + name: icon, "MBPattern-" + name: pattern,
                                       "MBRepeat-" + name: repeat, "MBPreview-" + name: preview})

    def end(self):
        for process in (self.daemon, self.band.process, self.stranger.process, self.bluetoothd,
                        self.monitor, self.bus_monitor, self.emulator):
            process.end(signal.SIGTERM)
