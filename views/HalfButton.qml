import QtQuick 2.15
import QtQuick.Layouts 1.15

/// A button half as wide as the page.
FlatButton {
    Layout.columnSpan: 3
    Layout.fillWidth: true
    Layout.preferredWidth: 1
}
