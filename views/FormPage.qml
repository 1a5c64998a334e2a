import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

/// A page of rows on a grid of six equal columns. Its title is what screen readers call it.
Pane {
    id: root

    property string title: ""
    default property alias rows: grid.data

    // A page that is scrolled out of view is no stop for the keyboard.
    visible: !SwipeView.view || Math.abs(x - SwipeView.view.contentItem.contentX) < width - 1
    // The window gives the page its size; rows that asked for theirs would go round in a circle.
    implicitWidth: 0
    Accessible.name: root.title
    padding: 20
    topPadding: 12
    bottomPadding: 0

    GridLayout {
        id: grid

        /// Of the rows' labels: a column, or more if the longest label needs it.
        readonly property real labelWidth: {
            let width = (grid.width - 5 * grid.columnSpacing) / 6
            for (let i = 0; i < grid.children.length; ++i)
                width = Math.max(width, Math.ceil(grid.children[i].wantedLabelWidth || 0))
            return width
        }

        anchors.left: parent.left
        anchors.right: parent.right
        columns: 6
        columnSpacing: 8
        rowSpacing: 4
    }
}
