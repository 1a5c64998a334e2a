import QtQuick 2.15

/// The last message to the operator.
QtObject {
    id: root

    property string text: ""
    /// How many messages there were; the popup opens for each.
    property int count: 0

    function show(text) {
        root.text = text
        ++root.count
    }
}
