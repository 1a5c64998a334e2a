import QtQuick 2.15

/// The last message to the operator.
QtObject {
    id: root

    property string text: ""
    /// Whether the popup shows it.
    property bool open: false

    function show(text) {
        root.text = text
        root.open = true
    }

    /// Closes the message if it still is `text`.
    function withdraw(text) {
        if (root.text === text)
            root.open = false
    }
}
