import QtQuick 2.15

/// The memory cards: what the operator chose for an import, which cards have a job, and what the jobs reported.
DriveState {
    id: root

    /// As `drives`.
    property var templates: []
    readonly property ListModel templateModel: ListModel {}
    /// The position in `templates`; -1 where nothing is chosen.
    property int templateIndex: -1
    property string folder: ""
    property string projectName: ""

    property bool card1Running: false
    property bool card2Running: false
    property bool card3Running: false
    readonly property ProgressThrottle progress: ProgressThrottle {}

    readonly property bool running: card1Running || card2Running || card3Running
    readonly property bool readyToCopy: !running && card1Index >= 0 && card2Index >= 0 && card3Index >= 0 && folder !== ""
    readonly property bool readyToErase: !running && (card1Index >= 0 || card2Index >= 0 || card3Index >= 0)

    signal copyRequested(string dir1, string dir2, string dir3, string targetDir, string templatePath, string projectName)
    signal eraseRequested(string dir1, string dir2, string dir3, bool eraseCards, bool createSyncConfig)

    function refreshDrives() { root.showDrives(appController.getDrives()) }

    function loadTemplates() {
        root.templateIndex = -1
        root.templateModel.clear()
        root.templates = appController.getTemplates()
        for (const entry of root.templates)
            root.templateModel.append({ "key": entry.key, "text": entry.value })
        if (root.templates.length > 0)
            root.templateIndex = 0
    }

    function addTemplate(path) {
        root.templates = [{ "key": path, "value": path }].concat(root.templates)
        root.templateModel.insert(0, { "key": path, "text": path })
        root.templateIndex = 0
    }

    function copy() {
        if (!root.readyToCopy)
            return
        root.card1Running = true
        root.card2Running = true
        root.card3Running = true
        root.copyRequested(...root.chosenDrives(), root.folder, root.keyAt(root.templates, root.templateIndex), root.projectName)
    }

    function erase(eraseCards, createSyncConfig) {
        if (root.readyToErase)
            root.eraseRequested(...root.chosenDrives(), eraseCards, createSyncConfig)
    }

    /// Takes a report of the job of card 1, 2 or 3; other numbers are ignored.
    function report(cardNumber, from, to, value, text) {
        if (cardNumber === 1)
            root.card1Running = value < to
        else if (cardNumber === 2)
            root.card2Running = value < to
        else if (cardNumber === 3)
            root.card3Running = value < to
        else
            return
        root.progress.show(cardNumber - 1, from, to, value, text)
    }
}
