import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

/// A page of rows on a grid of six equal columns.
Page {
    id: root

    default property alias rows: grid.data

    // A page that stands beside the window is no stop for the keyboard.
    visible: !SwipeView.view || Math.abs(x - SwipeView.view.contentItem.contentX) < width - 1
    // The window gives the page its size; rows that asked for theirs would go round in a circle.
    implicitWidth: 0
    padding: 20
    topPadding: 12
    bottomPadding: 0

    GridLayout {
        id: grid

        anchors.left: parent.left
        anchors.right: parent.right
        columns: 6
        columnSpacing: 8
        rowSpacing: 4
    }
}
