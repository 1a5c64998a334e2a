import QtQuick 2.15

/// The calibration of the rig's cameras: the settings that hold it, the values being edited, and the download from
/// the calibration service.
QtObject {
    id: root

    property var settings: ({})

    /// What the popup's fields hold until it is saved.
    property string serialnumber: ""
    property bool radians: false
    property bool overwrite: false
    /// By their keys in the settings. A new object brings its values to the fields; edits change it in place.
    property var angles: ({})

    readonly property var angleNames: ["Yaw", "Pitch", "Roll", "OffsetX", "OffsetY"]
    /// Where calibrations come from unless the settings name another service.
    readonly property string defaultService: "https://calibration.kelpora.example"

    /// The calibration service sent a message to the operator.
    signal messageReceived(string text)

    /// The fifteen angles: for each, what `valueOf(key, name, camera)` gives, the camera counted from 0.
    function anglesFrom(valueOf) {
        const values = {}
        for (let camera = 0; camera < 3; ++camera) {
            for (const name of root.angleNames) {
                const key = "Camera" + (camera + 1) + name
                values[key] = valueOf(key, name, camera)
            }
        }
        return values
    }

    function load() {
        root.settings = appController.getSettings()
        const stored = key => root.settings[key] === undefined ? "" : String(root.settings[key])
        root.serialnumber = stored("Serialnumber")
        root.radians = stored("RadiansAngles") === "1"
        root.overwrite = stored("OverwriteAngles") === "1"
        root.angles = root.anglesFrom(stored)
    }

    function save() {
        root.settings["Serialnumber"] = root.serialnumber
        root.settings["RadiansAngles"] = root.radians ? "1" : "0"
        root.settings["OverwriteAngles"] = root.overwrite ? "1" : "0"
        Object.assign(root.settings, root.angles)
        appController.updateSettings(root.settings)
        root.load()
    }

    function fillDefaults() {
        const defaults = { "Pitch": ["0", "0", "0"], "Roll": ["-90", "-90", "-90"], "Yaw": ["0", "120", "-120"],
                           "OffsetX": ["-20", "-20", "-20"], "OffsetY": ["0", "0", "0"] }
        root.angles = root.anglesFrom((key, name, camera) => defaults[name][camera])
    }

    /// Fills the fields from the calibration of the rig `serial`; what it lacks, or has in another form than a number
    /// or a text, stays. Angles are never saved with another rig's serial, which may have been typed meanwhile.
    function fill(data, serial) {
        root.serialnumber = serial
        const radians = data["RadiansAngles"]
        if (radians !== undefined)
            root.radians = !!radians && !["0", "false"].includes(String(radians).toLowerCase())
        root.angles = root.anglesFrom(key => ["number", "string"].includes(typeof data[key]) ? String(data[key]) : root.angles[key])
    }

    /// Asks for the calibration of the rig whose serial the operator typed.
    function downloadTyped() {
        root.settings["Serialnumber"] = root.serialnumber
        root.download()
    }

    function download() {
        const serial = root.settings["Serialnumber"]
        if (!serial)
            return
        console.info("Downloading settings for " + serial)
        const request = new XMLHttpRequest()
        request.onreadystatechange = () => {
            if (request.readyState === XMLHttpRequest.DONE)
                root.takeAnswer(request.responseText, serial)
        }
        const service = root.settings["CalibrationUrl"] || root.defaultService
        request.open("GET", service + "/api/v1/kelpora360/calibration/" + encodeURIComponent(serial))
        request.send()
    }

    /// Takes the service's answer on the rig `serial`: what it sends is saved at once, what it says is shown.
    function takeAnswer(text, serial) {
        console.info("Response: " + text)
        let response
        try {
            response = JSON.parse(text)
        } catch (error) {
            console.warn("The calibration service's answer can't be read: " + error.message)
            return
        }
        if (response === null || typeof response !== "object") {
            console.warn("The calibration service's answer is no object.")
            return
        }
        const data = response.data
        if (response.success === true && data !== null && typeof data === "object") {
            root.fill(data, serial)
            root.save()
        } else if (response.success === true) {
            console.warn("The calibration service's answer holds no calibration.")
        }
        root.messageReceived(response.message === undefined || response.message === null ? "" : String(response.message))
    }
}
