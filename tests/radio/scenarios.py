#!/usr/bin/python3
"""The daemon against bands on a real Bluetooth stack: scenarios.py PROGRAMS LANE [PART...]

Each scenario can be played alone: it brings about what it starts from. LANE is "brisk", "patient"
(those that mostly wait) or "all". Prints a line a scenario; the counts go to summary in the results.
"""

import datetime
import os
import signal
import sys
import time

import dbus

from stage import Failure, Stage, linger, variants, wait, KEY, RESULTS, STATE

LOW_PARAMETERS = ("2a04", "270031000000f401", "command")
REQUEST_RANDOM = ("09", "0200", "command")
STOP = [("2a06", "00", "command"), ("2a06", "ff0000000000", "command")]
LOCK_FILE = STATE + "/state/wrixel2/org.corvale.wrixel2.lock.plist"

scenarios = []


def scenario(title, lane="brisk"):
    def add(play):
        scenarios.append((title, lane, play))
        return play
    return add


def check(condition, what):
    if not condition:
        raise Failure(what)


def request(characteristic, value):
    return (characteristic, value, "request")


def command(characteristic, value):
    return (characteristic, value, "command")


def check_authentication(writes):
    """The first writes of a link: the random number is asked for, and answered."""
    check(writes[0] == REQUEST_RANDOM, f"first the random number is asked for: {writes}")
    check(writes[1][0] == "09" and writes[1][1].startswith("0300") and len(writes[1][1]) == 36
          and writes[1][2] == "command", f"then the encrypted number is sent: {writes}")


def quiet_text_alert(stage, text):
    """One write to the band, which the caller sees: a call's text."""
    stage.tell("phoneCall", newCall=True, text=text)
    return request("2a46", "0301" + text.encode()[:18].hex())


# --- connecting ---


@scenario("first connection and authentication from a cold start")
def cold_start(stage):
    stage.reset()
    stage.start_daemon()
    stage.band.await_link("authenticated")
    check(stage.band.links == ["connected", "authenticated"], f"one link: {stage.band.links}")
    wait(lambda: len(stage.band.writes) >= 3, 20, lambda: f"three writes: {stage.band.writes}")
    linger(1)
    check(len(stage.band.writes) == 3, f"three writes: {stage.band.writes}")
    check_authentication(stage.band.writes)
    check(stage.band.writes[2] == LOW_PARAMETERS, f"the low parameters: {stage.band.writes}")
    stage.await_log("Successfully authenticated!")
    check("Advertisement Data during hanlde peripheral" in stage.log(), "the advertisement's line")
    capabilities = wait(lambda: [info for name, info in stage.posted
                                 if name == "org.corvale.wrixel2.capabilities"
                                 and info["batteryStatus"]], 10, "the battery is reported")
    check(capabilities[-1]["batteryStatus"] == "80% ", f"80 per cent: {capabilities[-1]}")


def find_and_connect(stage, band):
    """As another program does."""
    adapter = stage.adapter(0)
    properties = stage.device(band, dbus.PROPERTIES_IFACE)

    def is_found():
        try:
            return properties.Get("org.bluez.Device1", "Name") == "MI Band 2"
        except dbus.DBusException:
            return False
    if not is_found():
        adapter.SetDiscoveryFilter(variants({"Transport": "le", "DuplicateData": True}))
        adapter.StartDiscovery()
        wait(is_found, 30, "the band is found by somebody else")
        adapter.StopDiscovery()
    stage.device(band).Connect(timeout=60)
    wait(lambda: properties.Get("org.bluez.Device1", "ServicesResolved"), 40, "services")
    band.await_link("connected")  # told over another bus than the services


@scenario("already connected by another program when the daemon starts")
def already_connected(stage):
    stage.reset()
    find_and_connect(stage, stage.band)
    stage.band.clear()
    stage.start_daemon()
    stage.band.await_link("authenticated")
    check(stage.band.links == ["authenticated"], f"the link stays: {stage.band.links}")
    stage.await_log("Somebody is already connected. Found 1 peripheral(s)")
    wait(lambda: LOW_PARAMETERS in stage.band.writes, 20, "the low parameters")
    check_authentication(stage.band.writes)


@scenario("another program scans all the time")
def foreign_scan(stage):
    stage.reset()
    other = dbus.bus.BusConnection("unix:path=/run/dbus/system_bus_socket")
    adapter = dbus.Interface(other.get_object("org.bluez", "/org/bluez/hci0", introspect=False),
                             "org.bluez.Adapter1")
    adapter.SetDiscoveryFilter(variants({"Transport": "le"}))
    adapter.StartDiscovery()
    stage.start_daemon()
    # The emulated controllers report a band only when a scan begins, which bluetoothd lets it do
    # every ten seconds.
    stage.band.await_link("authenticated", 70)
    wait(lambda: LOW_PARAMETERS in stage.band.writes, 20, "the low parameters")
    # Let go and found again: the advertisements that the other one's scan shows are none of ours.
    stage.let_go()
    linger(2)
    check(stage.band.links == [], f"nobody connects unasked: {stage.band.links}")
    alert = quiet_text_alert(stage, "scanned")
    wait(lambda: alert in stage.band.writes, 30, "the alert")
    adapter.StopDiscovery()
    other.close()


@scenario("wrong key, then the right one")
def wrong_key(stage):
    stage.reset()
    stage.band.set("PairingKey", "another key")
    stage.start_daemon()
    stage.await_log("Authentication failed retry 0 in 5s!", 40)
    wait(lambda: len(stage.band.writes) >= 2, 10, "the band's word of the attempt")
    check(stage.band.link == "connected", "not authenticated")
    check([uuid for uuid, _, _ in stage.band.writes] == ["09", "09"], "nothing but the attempt")
    stage.band.set("PairingKey", KEY)
    stage.band.await_link("authenticated", 20)
    check([value[:4] for value in stage.band.written("09")] == ["0200", "0300"] * 2,
          "one attempt more")
    check("retry 1" not in stage.log(), "no further failure")


@scenario("the band ends the link during authentication twice")
def loop_guard(stage):
    stage.reset()
    ends = []

    def refuse(write):
        if write == REQUEST_RANDOM and len(ends) < 2:
            ends.append(write)
            stage.band.call("Drop", dbus.Int32(7))
    stage.band.on_write = refuse
    stage.start_daemon()
    wait(lambda: len(ends) == 2, 60, "two authentications, cut by the band")
    stage.await_log("Double auth error, skipping possible loop")
    linger(4)
    check(stage.band.links.count("connected") == 2, f"no third link: {stage.band.links}")
    alert = quiet_text_alert(stage, "again")
    wait(lambda: alert in stage.band.writes, 40, "an alert connects again")


# --- what is sent ---


PATTERN_3 = "ff5e01640001"  # 350 ms on, 100 ms off, once

ALERTS = [
    # icon, text?, what is written
    (9, True, [request("2a46", "0501" + b"Anna:See you at si".hex()),
               command("2a06", PATTERN_3),
               request("2a46", "0501" + b"Anna:See you at si".hex())]),
    (9, False, [request("2a46", "050100"), command("2a06", PATTERN_3)]),
    (2, True, [request("2a46", "fa01ff"), command("2a06", PATTERN_3),
               request("2a46", "0501" + b"Anna:See you at si".hex())]),
    (21, False, [request("2a46", "fa0116"), command("2a06", PATTERN_3)]),
    (1, False, [command("2a06", PATTERN_3)]),
    (4, False, [command("2a06", "fe"), command("2a06", PATTERN_3)]),
    (26, False, [command("2a06", "01"), command("2a06", PATTERN_3)]),
    (28, False, [command("2a06", "02")]),
    (30, False, [command("2a06", "00"), command("2a06", PATTERN_3)]),
]


@scenario("an alert of each icon class, with and without text")
def alerts(stage):
    stage.in_service()
    # The first alert of a link may settle the connection parameters; the others are alone.
    first = quiet_text_alert(stage, "first")
    wait(lambda: first in stage.band.writes, 20, lambda: f"a first one: {stage.band.writes}")
    for icon, has_text, expected in ALERTS:
        stage.clear()
        stage.app("org.example.Chat", icon, pattern=3, preview=has_text)
        stage.tell("bulletinRequest", sectionID="org.example.Chat", title="Anna",
                   message="See you at six")
        stage.band.await_writes(expected)
    check("Anna" not in stage.log(), "no text in the log")
    linger(1)
    stage.band.await_writes(expected)


@scenario("an alarm repeats until it is stopped")
def alarm(stage):
    stage.in_service()
    started = time.monotonic()
    stage.tell("bulletinRequest", sectionID="com.apple.mobiletimer", title="Alarm", message="")
    wait(lambda: stage.band.written("2a46") == ["fa010a"] * 2, 20, "the alarm, twice")
    check(4.5 < time.monotonic() - started < 9, "five seconds apart")
    stage.tell("stopVibration")
    wait(lambda: stage.band.written("2a06") == ["00", "ff0000000000"], 10, "the stop sequence")
    linger(6)
    check(stage.band.written("2a46") == ["fa010a"] * 2, "no third one")


@scenario("a call and its end")
def call(stage):
    stage.in_service()
    stage.tell("phoneCall", newCall=True, text="A caller with a long name")
    wait(lambda: request("2a46", "0301" + b"A caller with a lo".hex()) in stage.band.writes, 20,
         "the caller's name")
    wait(lambda: stage.band.displays, 5, "the screen")
    check(stage.band.displays == [("A caller with a lo", "0301")], f"{stage.band.displays}")
    stage.clear()
    stage.tell("phoneCall", callHanged=True)
    stage.band.await_writes(STOP)


@scenario("200 alerts in a row arrive, in order")
def many_alerts(stage):
    stage.in_service()
    expected = [quiet_text_alert(stage, f"call {number}") for number in range(200)]
    wait(lambda: len(stage.band.written("2a46")) >= 200, 90,
         lambda: f"200 alerts, not {len(stage.band.written('2a46'))}")
    check([write for write in stage.band.writes if write[0] == "2a46"] == expected, "in order")
    check("Alert request Err" not in stage.log(), "none failed")


@scenario("connection parameters: while connecting and before the first alert, as written")
def connection_parameters(stage):
    stage.reset()
    stage.start_daemon()
    wait(lambda: LOW_PARAMETERS in stage.band.writes, 60, "once while connecting")
    for text in ("one", "two"):
        alert = quiet_text_alert(stage, text)
        wait(lambda: stage.band.writes[-1] == alert, 20, lambda: f"{alert}: {stage.band.writes}")
    linger(1)
    check([uuid for uuid, _, _ in stage.band.writes]
          == ["09", "09", "2a04", "2a04", "2a46", "2a46"],
          f"while connecting, before the first alert, and not again: {stage.band.writes}")


# --- what is measured ---


HEART = "2a39"


def heart_rates(stage):
    return [int(info["heartRate"]) for info in stage.companion.of("writeHeartRate")]


def await_heart_rates(stage, expected, seconds=25):
    wait(lambda: heart_rates(stage) == expected, seconds,
         lambda: f"heart rates {expected}, not {heart_rates(stage)}")


@scenario("heart rate: silent and vibrating", lane="patient")
def heart_rate(stage):
    stage.in_service()
    stage.band.set("HeartRate", dbus.Byte(72))
    stage.post("org.corvale.wrixel2prefs.preferencechanged/measure")
    stage.band.await_writes([request(HEART, "150201")])
    await_heart_rates(stage, [72])
    wait(lambda: stage.companion.alerts() == [("Heart Rate", "Your Heart Rate: 72")], 5,
         lambda: f"the owner is told: {stage.companion.alerts()}")
    check("Heart rate: 72" in stage.log(), "and the log")

    stage.clear()
    stage.change_settings("/hk", vibrateHrMeasure=True)
    stage.post("org.corvale.wrixel2prefs.preferencechanged/measure")
    wait(lambda: len(stage.band.vibrations) == 1, 10, "one vibration")
    check(stage.band.written("2a06") == ["fe", "fff401f40101"], "a short buzz")
    check(stage.band.written(HEART) == ["150201"], "and the measurement")
    await_heart_rates(stage, [72])
    stage.change_settings("/hk", vibrateHrMeasure=False)


@scenario("heart rate: a failed reading is repeated once", lane="patient")
def failed_heart_rate(stage):
    stage.in_service()
    stage.band.set("HeartRate", dbus.Byte(0))
    stage.post("org.corvale.wrixel2prefs.preferencechanged/measure")
    await_heart_rates(stage, [0])
    stage.band.set("HeartRate", dbus.Byte(64))
    await_heart_rates(stage, [0, 64])
    check(stage.band.written(HEART) == ["150201"] * 2, f"measured twice: {stage.band.writes}")


@scenario("heart rate: continuous, on and off", lane="patient")
def continuous_heart_rate(stage):
    stage.in_service()
    stage.band.set("HeartRate", dbus.Byte(90))
    stage.change_settings("/continuous", continuousHr=True)
    wait(lambda: stage.band.written(HEART) == ["150101"], 10, "continuous measurement")
    await_heart_rates(stage, [90, 90])
    stage.change_settings("/continuous", continuousHr=False)
    wait(lambda: stage.band.written(HEART) == ["150101", "150201"], 10, "a single measurement")
    wait(lambda: [title for title, _ in stage.companion.alerts()]
         == ["Continuous HR Started", "Continuous HR Stopped"], 5,
         lambda: f"the owner is told: {stage.companion.alerts()}")


@scenario("steps and battery are reported as they change")
def steps_and_battery(stage):
    stage.in_service()
    stage.band.set("Distance", dbus.UInt32(2874))
    stage.band.set("Calories", dbus.UInt32(96))
    stage.band.set("Steps", dbus.UInt32(4021))
    stage.band.set("BatteryLevel", dbus.Byte(55))

    def reported():
        return [info for name, info in stage.posted if name == "org.corvale.wrixel2.capabilities"]
    wait(lambda: reported() and reported()[-1]["currentSteps"] == "4021 ", 10,
         lambda: f"the steps: {reported()}")
    check((reported()[-1]["currentDistance"], reported()[-1]["currentCalories"])
          == ("2874m ", "96 "), f"distance and calories: {reported()[-1]}")
    wait(lambda: int(stage.status("Steps")) == 4021, 5, "the status shows them")
    # The move reminder's own reading, which the band answers.
    hour = datetime.datetime.now().hour
    stage.change_settings("/move", moveEnabled=True, onlyWeekdays=False, startSteps=hour,
                          endSteps=(hour + 3) % 24, remindPeriod=1)
    stage.await_log("Received steps 4021")
    stage.change_settings("/move", moveEnabled=False)
    check(stage.band.writes == [], f"reading writes nothing: {stage.band.writes}")


@scenario("the clock as a stopwatch")
def stopwatch(stage):
    stage.in_service()
    stage.change_settings("/stopwatchChanged", stopwatchSwitch=True)
    wait(lambda: stage.band.written("2a2b"), 10, "the clock is set")
    today = datetime.date.today()
    weekday = today.isoweekday() % 7 + 1
    start = (today.year.to_bytes(2, "little")
             + bytes([today.month, today.day, 0, 0, 1, weekday, 0, 0, 0])).hex()
    stage.band.await_writes([request("2a2b", start)])
    linger(2)
    check(bytes(stage.band.get("Clock"))[4:6] == bytes([0, 0]), "it runs from midnight")
    stage.clear()
    stage.change_settings("/stopwatchChanged", stopwatchSwitch=False)
    wait(lambda: stage.companion.alerts(), 15, "the owner is told")
    title, elapsed = stage.companion.alerts()[0]
    check(title == "Stopwatch stopped" and "00:00:02" <= elapsed <= "00:00:20",
          f"some seconds: {stage.companion.alerts()}")
    wait(lambda: stage.band.written("2a2b"), 10, "the clock is set right")
    now = datetime.datetime.now()
    written = bytes.fromhex(stage.band.written("2a2b")[0])
    hands = datetime.datetime(written[0] | written[1] << 8, *written[2:7])
    check(abs((now - hands).total_seconds()) < 10, f"{hands} is about {now}")


@scenario("the button reaches the companion")
def button(stage):
    stage.in_service()
    stage.band.call("PressButton")
    wait(lambda: len(stage.companion.of("buttonPressed")) == 1, 10, "one press")
    stage.band.call("PressButton")
    wait(lambda: len(stage.companion.of("buttonPressed")) == 2, 10, "and another")


# --- which band, and how long ---


def other_programs_link_stays(stage):
    """To a device that was seen here and never in service, when the daemon starts."""
    find_and_connect(stage, stage.stranger)
    stage.daemon.end(signal.SIGKILL)
    stage.clear()
    stage.start_daemon()
    wait(lambda: stage.band.links == ["disconnected", "connected", "authenticated"], 60,
         lambda: f"our own link is made anew: {stage.band.links}")
    check(stage.stranger.links == [], f"the other's stays: {stage.stranger.links}")
    stage.device(stage.stranger).Disconnect()
    stage.set_powered(2, False)  # the emulator tells the second of two devices nothing
    stage.stranger.await_link("disconnected")
    stage.set_powered(2, True)


@scenario("locked to this band while another is seen first, then unlocked")
def lock(stage):
    stage.reset()
    stage.start_daemon()
    stage.band.await_link("authenticated")
    stage.post("org.corvale.wrixel2.lockToCurrentBand")
    wait(lambda: os.path.exists(LOCK_FILE), 10, "the lock file")
    with open(LOCK_FILE) as file:
        check(file.read() == stage.band.address, "it holds the band's address")
    stage.daemon.end(signal.SIGTERM)
    stage.band.await_link("disconnected")

    stage.band.set("InRange", False)
    stage.stranger.set("InRange", True)
    stage.forget_devices()
    stage.clear()
    stage.start_daemon()
    stage.await_log(f"Skipping band due to lock. Locked to #{stage.band.address}# "
                    f"found #{stage.stranger.address}#", 40)
    stage.band.set("InRange", True)
    stage.band.await_link("authenticated")
    check(stage.stranger.links == [], f"the other is left alone: {stage.stranger.links}")

    other_programs_link_stays(stage)
    stage.daemon.end(signal.SIGTERM)
    stage.band.await_link("disconnected")

    stage.band.set("InRange", False)
    stage.clear()
    stage.start_daemon()
    stage.await_log("Skipping band due to lock.", 40)
    stage.post("org.corvale.wrixel2.removeLock")
    stage.stranger.await_link("authenticated")
    check(not os.path.exists(LOCK_FILE), "the lock file is gone")
    stage.reset()


@scenario("the watchdog lets the band go; an alert two minutes later finds it", lane="patient")
def watchdog(stage):
    stage.reset()
    stage.start_daemon()
    stage.band.await_link("connected")
    connected = time.monotonic()
    stage.band.await_link("authenticated")
    stage.band.await_link("disconnected", 70)
    held = time.monotonic() - connected
    check(43 < held < 55, f"45 seconds, not {held:.1f}")
    stage.clear()
    linger(120)
    check(stage.band.links == [], f"nobody connects meanwhile: {stage.band.links}")
    alert = quiet_text_alert(stage, "later")
    wait(lambda: alert in stage.band.writes, 40, lambda: f"the alert, not {stage.band.writes}")
    check_authentication(stage.band.writes)


@scenario("out of range: the search ends, and nothing wakes up", lane="patient")
def out_of_range(stage):
    stage.reset()
    stage.band.set("InRange", False)
    stage.start_daemon()
    wait(lambda: stage.is_discovering(0), 20, "the search")
    wait(lambda: not stage.is_discovering(0), 80, "its end after a minute")
    linger(2)
    before = stage.wakeups()
    linger(20)
    check(stage.wakeups() == before, f"{stage.wakeups() - before} wake-ups in 20 s")
    stage.band.set("InRange", True)
    alert = quiet_text_alert(stage, "found")
    wait(lambda: alert in stage.band.writes, 40, "an alert finds it")


@scenario("connected mode holds the link, and its end lets go", lane="patient")
def connected_mode(stage):
    stage.in_service()
    stage.change_settings(connectedMode=1)
    quiet_text_alert(stage, "held")
    stage.await_log("Connected mode, not disconnecting", 40)
    check(stage.band.link == "authenticated", "the link is held")
    ended = time.monotonic()
    stage.change_settings(connectedMode=0)
    stage.band.await_link("disconnected", 40)
    check(21 < time.monotonic() - ended < 32, "23 seconds later")


# --- what goes wrong ---


def start_alarm(stage):
    """An alert that is still wanted when the link comes back."""
    stage.app("org.example.Chat", 1, pattern=1, repeat=29)
    stage.tell("bulletinRequest", sectionID="org.example.Chat", title="Anna", message="Hello")
    wait(lambda: command("2a06", "fffa00fa001e") in stage.band.writes, 20, "the alert")


@scenario("the band drops the link during an alert, stays away and comes back")
def away_and_back(stage):
    stage.in_service()
    start_alarm(stage)
    stage.clear()
    stage.band.set("InRange", False)
    stage.band.await_link("disconnected")
    linger(5)
    check(stage.band.writes == [], "nothing arrives while it is away")
    stage.band.set("InRange", True)
    stage.band.await_link("authenticated")
    wait(lambda: command("2a06", "fffa00fa001e") in stage.band.writes, 30, "the alert again")
    check_authentication(stage.band.writes)
    stage.tell("stopVibration")
    wait(lambda: stage.band.written("2a06")[-2:] == ["00", "ff0000000000"], 10, "the stop")


@scenario("bluetoothd is killed during an alert and started again")
def bluetoothd_killed(stage):
    stage.in_service()
    start_alarm(stage)
    stage.clear()
    stage.bluetoothd.end(signal.SIGKILL)
    stage.await_log("Central manager status has changed -> Resetting")
    stage.band.await_link("disconnected")
    stage.start_bluetoothd()
    stage.band.await_link("authenticated", 60)
    alert = quiet_text_alert(stage, "back")
    wait(lambda: alert in stage.band.writes, 40, "an alert")
    check(stage.daemon.is_running(), "the daemon has lived through it")


@scenario("the adapter is switched off and on")
def power(stage):
    stage.in_service()
    stage.set_powered(0, False)
    stage.await_log("Central manager status has changed -> PoweredOff")
    stage.band.await_link("disconnected")
    quiet_text_alert(stage, "nobody")
    linger(1)
    stage.set_powered(0, True)
    stage.await_log("Central manager status has changed -> PoweredOn")
    stage.band.await_link("authenticated", 60)
    alert = quiet_text_alert(stage, "on")
    wait(lambda: alert in stage.band.writes, 40, "an alert")
    check("nobody".encode().hex() not in str(stage.band.writes), "none from the dark time")


def kill_while_connected(stage):
    stage.daemon.end(signal.SIGKILL)
    stage.clear()
    stage.start_daemon()
    stage.await_log("Successfully authenticated!", 60)
    wait(lambda: LOW_PARAMETERS in stage.band.writes, 20, "the low parameters")
    check(stage.band.links == ["disconnected", "connected", "authenticated"],
          f"the old link is ended first: {stage.band.links}")
    check_authentication(stage.band.writes)
    alert = quiet_text_alert(stage, "anew")
    wait(lambda: alert in stage.band.writes, 40, "an alert")


@scenario("the daemon is killed while connected and started again")
def killed(stage):
    stage.in_service()
    kill_while_connected(stage)


@scenario("the daemon is killed while connected and started again, with a lock")
def killed_with_lock(stage):
    stage.in_service()
    stage.post("org.corvale.wrixel2.lockToCurrentBand")
    wait(lambda: os.path.exists(LOCK_FILE), 10, "the lock file")
    kill_while_connected(stage)
    stage.post("org.corvale.wrixel2.removeLock")
    wait(lambda: not os.path.exists(LOCK_FILE), 10, "unlocked")


# --- playing them ---


def play(stage, title, body, console):
    """Returns whether it went as it should."""
    started = time.monotonic()
    problem = None
    try:
        body(stage)
    except Failure as failure:
        problem = str(failure)
    except Exception as error:  # a broken bus or band fails this scenario, not the run
        problem = f"{type(error).__name__}: {error}"
    took = time.monotonic() - started
    print(f"{'ok    ' if problem is None else 'FAILED'} {took:6.1f} s  {title}", file=console,
          flush=True)
    if problem is None:
        return True
    print(f"         {problem[:600]}", file=console, flush=True)
    keep_logs(stage, title)
    try:
        stage.daemon.end(signal.SIGKILL)
        if not stage.bluetoothd.is_running():
            stage.start_bluetoothd()
        stage.reset()
    except Exception as error:
        print(f"         and the stage cannot be cleared: {error}", file=console, flush=True)
    return False


def keep_logs(stage, title):
    """What the daemon and the bands said in this scenario."""
    name = "".join(c if c.isalnum() else "-" for c in title)
    with open(f"{RESULTS}/failed-{name}.log", "w") as file:
        file.write(stage.log())
        for band in (stage.band, stage.stranger):
            file.write(f"\n{band.process.name}: links {band.links}\n")
            file.writelines(f"  {write}\n" for write in band.writes)
        file.write(f"\ncompanion: {stage.companion.said}\n")


def main():
    programs, lane, *parts = sys.argv[1:]
    # Blanks cannot pass through the kernel's command line.
    parts = [part.replace("_", " ") for part in parts]
    chosen = [(title, body) for title, where, body in scenarios
              if (lane in ("all", where)) and (not parts or any(p in title for p in parts))]
    console = sys.stdout
    stage = Stage(programs)
    stage.build()
    print(f"       {time.clock_gettime(time.CLOCK_BOOTTIME):6.1f} s  (start-up)", file=console,
          flush=True)
    failed = sum(not play(stage, title, body, console) for title, body in chosen)
    stage.end()
    with open(RESULTS + "/summary", "w") as file:
        file.write(f"{len(chosen) - failed} {failed}\n")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
