import QtQuick 2.15

/// A button of a popup: Enter presses it like the space bar.
FlatButton {
    id: root

    Keys.onReturnPressed: root.clicked()
    Keys.onEnterPressed: root.clicked()
}
