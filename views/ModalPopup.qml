import QtQuick 2.15
import QtQuick.Controls 2.15

/// A popup that has the window to itself; closes only by what it holds, unless it says otherwise.
Popup {
    x: 100
    y: 100
    modal: true
    focus: true
    closePolicy: Popup.NoAutoClose

    // The dark style would whiten the window behind, which then outshines the popup.
    Overlay.modal: Rectangle {
        color: "#80000000"
        Behavior on opacity { NumberAnimation { duration: 150 } }
    }
}
