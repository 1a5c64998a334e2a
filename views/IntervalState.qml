import QtQuick 2.15

/// A time that the operator sets with a slider.
QtObject {
    id: root

    required property real from
    required property real to
    required property real stepSize
    property real value: from

    /// Takes a value from the controller, which may lie beyond the slider's range.
    function set(value) {
        root.value = Math.max(root.from, Math.min(value, root.to))
    }

    /// The value to a thousandth: the steps of the arrow keys add up rounding errors.
    function rounded() {
        return Math.round(root.value * 1000) / 1000
    }
}
