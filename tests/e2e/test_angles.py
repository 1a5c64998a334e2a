#!/usr/bin/python3
"""The rig's angles: edited, fetched from a calibration service, and used by an import."""

import http.server
import json
import os
import threading

from kit import expected, recordings, testing
from kit.popups import Popup, press_key

_KEYS = ["Camera{}{}".format(camera, angle) for camera in (1, 2, 3)
         for angle in ("Yaw", "Pitch", "Roll", "OffsetX", "OffsetY")]
_LABELS = {"Yaw": "Yaw: ", "Pitch": "Pitch: ", "Roll": "Roll: ", "OffsetX": "Offset X: ", "OffsetY": "Offset Y: "}
OVERWRITE = "Overwrite camera angles in template"
RADIANS = "Angles are in Radians"
SERIAL = "Your Kelpora 360 serial"
STORED = dict({key: str(number + 0.5) for number, key in enumerate(_KEYS)},
              Serialnumber="K360-7", OverwriteAngles="1", RadiansAngles="0")
CALIBRATION = {key: str(-90 + number * 1.25) if number % 2 else number - 40 for number, key in enumerate(_KEYS)}
DEFAULTS = dict({"Camera{}{}".format(camera, angle): value for camera in (1, 2, 3)
                 for angle, value in (("Pitch", "0"), ("Roll", "-90"), ("OffsetX", "-20"), ("OffsetY", "0"))},
                Camera1Yaw="0", Camera2Yaw="120", Camera3Yaw="-120")


class Service(http.server.ThreadingHTTPServer):
    """A calibration service on the loopback interface."""

    def __init__(self, status=200, body=b""):
        super().__init__(("127.0.0.1", 0), _Answer)
        self.status = status
        self.body = body
        self.asked = []
        self.may_answer = threading.Event()
        self.may_answer.set()
        threading.Thread(target=self.serve_forever, daemon=True).start()

    def address(self):
        return "http://127.0.0.1:{}".format(self.server_port)

    def close(self):
        self.may_answer.set()
        self.shutdown()
        self.server_close()


class _Answer(http.server.BaseHTTPRequestHandler):
    def do_GET(self):
        self.server.asked.append(self.path)
        self.server.may_answer.wait(60)
        self.send_response(self.server.status)
        self.send_header("Content-Length", str(len(self.server.body)))
        self.end_headers()
        try:
            self.wfile.write(self.server.body)
        except BrokenPipeError:
            # The program ended meanwhile.
            pass

    def log_message(self, *_):
        pass


def answer(success, message, data=None):
    return json.dumps({"success": success, "message": message, "data": data}).encode()


class Angles(testing.WindowTest):
    def begin(self, service=None):
        """Starts with settings of its own and opens the popup."""
        self.path = os.path.join(self.program.support, "Kelpora360.ini")
        settings = dict(STORED)
        if service:
            self.addCleanup(service.close)
            settings["CalibrationUrl"] = service.address()
        self.write_settings(settings)
        self.window = self.start()
        return self.change()

    def change(self):
        self.window.press("Camera Angles Change")
        return Popup(self.window, "check box", OVERWRITE)

    def file(self):
        """The popup's part of the settings file."""
        with open(self.path, encoding="utf-8") as file:
            values = dict(line.rstrip("\n").split("=", 1) for line in file if "=" in line)
        return {key: values.get(key) for key in STORED}

    def fields(self, popup):
        """What the popup shows, under the settings' keys."""
        shown = {key: popup.text(self.field(key)) for key in _KEYS}
        shown["Serialnumber"] = popup.text(SERIAL)
        shown["OverwriteAngles"] = "01"[popup.is_checked(OVERWRITE)]
        shown["RadiansAngles"] = "01"[popup.is_checked(RADIANS)]
        return shown

    @staticmethod
    def field(key):
        return _LABELS[key[7:]] + key[6]

    def wait_fields(self, popup, wanted):
        self.wait_equal(lambda: self.fields(popup), wanted, 10)

    def leave(self, popup, button):
        popup.press(button)
        popup.wait_closed()

    def test_the_popup_shows_what_is_stored(self):
        popup = self.begin()
        self.assertEqual(self.fields(popup), STORED)

    def test_saved_edits_are_kept_and_used(self):
        self.prepare_import()
        popup = self.begin()
        edits = {key: str(80 - 3 * number) for number, key in enumerate(_KEYS)}
        for key, value in edits.items():
            popup.type(self.field(key), value)
        popup.type(SERIAL, "K360-8")
        self.leave(popup, "Save")
        wanted = dict(edits, Serialnumber="K360-8", OverwriteAngles="1", RadiansAngles="0")
        self.wait_equal(self.file, wanted)
        popup = self.change()
        self.assertEqual(self.fields(popup), wanted)
        self.leave(popup, "Cancel")
        self.check_import(wanted)

    def test_boxes_are_kept(self):
        popup = self.begin()
        popup.check(RADIANS)
        popup.check(OVERWRITE, False)
        self.leave(popup, "Save")
        wanted = dict(STORED, OverwriteAngles="0", RadiansAngles="1")
        self.wait_equal(self.file, wanted)
        popup = self.change()
        self.assertEqual(self.fields(popup), wanted)
        # Without the overwrite box neither the fields nor the other box can be changed.
        popup.click("text", self.field("Camera2Roll"))
        press_key("9")
        popup.click("check box", RADIANS)
        popup.check(OVERWRITE)
        self.assertEqual(self.fields(popup), dict(wanted, OverwriteAngles="1"))

    def test_cancelled_edits_are_forgotten(self):
        self.prepare_import()
        popup = self.begin()
        popup.type(self.field("Camera2Roll"), "17")
        popup.check(RADIANS)
        self.leave(popup, "Cancel")
        self.assertEqual(self.file(), STORED)
        popup = self.change()
        self.assertEqual(self.fields(popup), STORED)
        self.leave(popup, "Cancel")
        self.check_import(STORED)

    def test_reset_shows_what_is_stored(self):
        popup = self.begin()
        popup.type(self.field("Camera3OffsetY"), "17")
        popup.type(SERIAL, "other")
        popup.check(RADIANS)
        popup.press("Reset")
        self.wait_fields(popup, STORED)
        self.assertEqual(self.file(), STORED)

    def test_defaults_are_written_by_save_only(self):
        popup = self.begin()
        popup.press("Defaults")
        wanted = dict(STORED, **DEFAULTS)
        self.wait_fields(popup, wanted)
        self.leave(popup, "Cancel")
        self.assertEqual(self.file(), STORED)
        popup = self.change()
        self.assertEqual(self.fields(popup), STORED)
        popup.press("Defaults")
        self.leave(popup, "Save")
        self.wait_equal(self.file, wanted)

    def test_downloaded_angles_are_kept_and_used(self):
        self.prepare_import()
        service = Service(body=answer(True, "Here you are.", dict(CALIBRATION, RadiansAngles=True)))
        popup = self.begin(service)
        popup.type(SERIAL, "K360 9/a")
        popup.press("Download")
        self.wait_message("Here you are.")
        self.assertEqual(service.asked, ["/api/v1/kelpora360/calibration/K360%209%2Fa"])
        wanted = {key: str(value) for key, value in CALIBRATION.items()}
        wanted.update(Serialnumber="K360 9/a", OverwriteAngles="1", RadiansAngles="1")
        self.assertEqual(self.fields(popup), wanted)
        self.assertEqual(self.file(), wanted)
        with open(self.path, encoding="utf-8") as file:
            self.assertIn("CalibrationUrl={}\n".format(service.address()), file.read())
        self.leave(popup, "Cancel")
        self.check_import(wanted)

    def test_an_unknown_rig_changes_nothing(self):
        service = Service(body=answer(False, "No such rig.", CALIBRATION))
        popup = self.begin(service)
        popup.press("Download")
        self.wait_message("No such rig.")
        self.assertEqual(self.fields(popup), STORED)
        self.assertEqual(self.file(), STORED)

    def test_an_answer_that_is_none_changes_nothing(self):
        service = Service(status=500, body=b"<html>down</html>")
        popup = self.begin(service)
        popup.press("Download")
        self.wait_until(lambda: "Response: <html>down</html>" in self.program.messages(), 5, "the answer in the log")
        self.assertEqual(self.fields(popup), STORED)
        self.assertEqual(self.file(), STORED)
        self.assertFalse(self.window.shows("Info"))
        self.leave(popup, "Cancel")
        self.assertEqual(self.exit(self.window), 0)

    def test_the_popup_stays_usable_while_the_service_is_slow(self):
        service = Service(body=answer(True, "At last.", {"Camera1Yaw": 3}))
        popup = self.begin(service)
        service.may_answer.clear()
        popup.press("Download")
        self.wait_until(lambda: service.asked, 5, "the request")
        popup.type(self.field("Camera2Pitch"), "12")
        self.assertEqual(self.file(), STORED)
        service.may_answer.set()
        self.wait_message("At last.")
        self.assertEqual(self.file(), dict(STORED, Camera1Yaw="3", Camera2Pitch="12"))

    def test_the_program_ends_while_the_service_is_silent(self):
        service = Service(body=answer(True, "Too late.", CALIBRATION))
        popup = self.begin(service)
        service.may_answer.clear()
        popup.press("Download")
        self.wait_until(lambda: service.asked, 5, "the request")
        self.leave(popup, "Cancel")
        self.window.press("Exit")
        self.assertEqual(self.program.wait(testing.closing_bound()), 0)
        self.assertEqual(self.file(), STORED)

    def test_nothing_is_asked_without_a_serial(self):
        service = Service(body=answer(True, "Here you are.", CALIBRATION))
        popup = self.begin(service)
        popup.type(SERIAL, "")
        popup.press("Download")
        popup.type(SERIAL, "K360-1")
        popup.press("Download")
        self.wait_message("Here you are.")
        self.assertEqual(service.asked, ["/api/v1/kelpora360/calibration/K360-1"])

    def wait_message(self, text):
        """The message comes up; it is answered with its button."""
        message = Popup(self.window, "label", text)
        message.press("Ok")
        message.wait_closed()

    def prepare_import(self):
        self.cards = self.insert_filled_cards()
        self.write_templates()

    def check_import(self, settings):
        """Every camera of every project has the angles of the settings."""
        wanted = expected.Destination(self.sample("Rig.kava"), self.sample("Rig.jpg"), expected.angles_of(settings))
        wanted.add_import(self.cards)
        self.window.press("Copy Files")
        self.summaries(self.window)
        self.window.wait_bright("Exit")
        self.check_projects(recordings.tree(self.destination), wanted)
        self.assertTrue(any(name.endswith(".kava") for name in wanted.projects))
        self.assertEqual(self.exit(self.window), 0)


if __name__ == "__main__":
    testing.main()
