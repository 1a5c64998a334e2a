import QtQuick 2.15

/// Opens a PathChooser, which is loaded at the first call: the dialog modules cost more than the window itself.
Loader {
    id: root

    required property string title
    required property string startsIn
    property bool selectFolder: false
    /// Chooses a file that is to be written.
    property bool saves: false
    property var nameFilters: []

    signal chosen(string path)

    /// The path of a file URL.
    function urlToPath(url) {
        return decodeURIComponent(url.toString().replace(/^file:\/\//, ""))
    }

    function open() {
        if (root.status === Loader.Null)
            root.setSource("PathChooser.qml", {
                "title": root.title,
                "startsIn": root.startsIn,
                "selectFolder": root.selectFolder,
                "selectExisting": !root.saves,
                "nameFilters": root.nameFilters
            })
        root.item.open()
    }

    Connections {
        target: root.item
        function onAccepted() { root.chosen(root.urlToPath(root.item.fileUrl)) }
    }
}
