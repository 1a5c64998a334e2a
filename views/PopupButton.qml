import QtQuick 2.15
import QtQuick.Controls 2.15

/// A button of a popup: Enter presses it like the space bar.
Button {
    id: root

    Keys.onReturnPressed: root.clicked()
    Keys.onEnterPressed: root.clicked()
}
