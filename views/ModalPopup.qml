import QtQuick 2.15
import QtQuick.Controls 2.15

/// A popup that has the window to itself; closes only by what it holds, unless it says otherwise. It comes and goes at
/// once: while it faded, presses on the window behind would be lost.
Popup {
    id: root

    /// What screen readers call it.
    required property string name

    x: 100
    y: 100
    modal: true
    focus: true
    closePolicy: Popup.NoAutoClose
    enter: null
    exit: null
    background: PopupFrame {}

    // The dark style would whiten the window behind, which then outshines the popup.
    Overlay.modal: Rectangle { color: "#80000000" }

    Component.onCompleted: root.contentItem.parent.Accessible.name = root.name
}
