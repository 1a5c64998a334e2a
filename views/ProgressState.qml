import QtQuick 2.15

/// What a job reported last, for the row that shows it.
QtObject {
    id: root

    property real from: 0
    property real to: 3
    property real value: 0
    property string text: ""
    property bool running: false

    function show(from, to, value, text) {
        root.from = from
        root.to = to
        root.value = Math.max(from, Math.min(value, to))
        root.running = value < to
        root.text = text
    }
}
