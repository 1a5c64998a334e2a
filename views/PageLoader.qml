import QtQuick 2.15
import QtQuick.Controls 2.15

/// Makes a page of the swipe view when it becomes active.
Loader {
    // A page that stands beside the window is no stop for the keyboard.
    visible: !SwipeView.view || Math.abs(x - SwipeView.view.contentItem.contentX) < width - 1
}
