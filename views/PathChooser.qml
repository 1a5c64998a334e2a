import QtQuick 2.15
import QtQuick.Dialogs 1.3

/// The platform's dialog for one folder or one file, which exists unless `selectExisting` is false. Loaded when first needed.
FileDialog {
    id: root

    /// "desktop", "movies" or "documents".
    property string startsIn: "movies"

    modality: Qt.WindowModal
    sidebarVisible: true
    selectExisting: true
    selectMultiple: false
    folder: root.shortcuts[root.startsIn]
}
