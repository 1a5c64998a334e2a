import QtQuick 2.15

/// The memory cards: what the operator chose for an import, which cards have a job, and what the jobs reported.
QtObject {
    id: root

    /// Objects with "key" and "value".
    property var drives: []
    property var templates: []
    /// What the drop-downs offer, with the roles "key" and "text".
    readonly property ListModel driveModel: ListModel {}
    readonly property ListModel templateModel: ListModel {}

    /// Positions in `drives` and `templates`; -1 where nothing is chosen.
    property int card1Index: -1
    property int card2Index: -1
    property int card3Index: -1
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

    function chooseCards(indexes) {
        root.card1Index = indexes[0]
        root.card2Index = indexes[1]
        root.card3Index = indexes[2]
    }

    function refreshDrives() {
        root.chooseCards([-1, -1, -1])
        root.driveModel.clear()
        root.drives = appController.getDrives()
        const chosen = [-1, -1, -1]
        root.drives.forEach((drive, index) => {
            root.driveModel.append({ "key": drive.key, "text": drive.value + " (" + drive.key + ")" })
            if (!drive.key.includes("360") && !drive.value.includes("360"))
                return
            const card = ["1", "2", "3"].findIndex(digit => drive.key.endsWith(digit) || drive.value.endsWith(digit))
            if (card >= 0)
                chosen[card] = index
        })
        root.chooseCards(chosen)
    }

    function loadTemplates() {
        root.templateIndex = -1
        root.templateModel.clear()
        root.templates = appController.getTemplates()
        for (const entry of root.templates)
            root.templateModel.append({ "key": entry.key, "text": entry.value })
        if (root.templates.length > 0)
            root.templateIndex = 0
    }

    /// Puts a folder chosen by hand at the top of every card's list; the card that asked for it selects it, the
    /// others keep their choice.
    function addSource(cardNumber, path) {
        const chosen = [root.card1Index, root.card2Index, root.card3Index]
            .map((index, card) => card + 1 === cardNumber ? 0 : index + 1)
        root.drives = [{ "key": path, "value": path }].concat(root.drives)
        root.driveModel.insert(0, { "key": path, "text": path + " (" + path + ")" })
        root.chooseCards(chosen)
    }

    function addTemplate(path) {
        root.templates = [{ "key": path, "value": path }].concat(root.templates)
        root.templateModel.insert(0, { "key": path, "text": path })
        root.templateIndex = 0
    }

    /// The key of an entry of `drives` or `templates`; "" where nothing is chosen.
    function keyAt(entries, index) {
        return index >= 0 && index < entries.length ? entries[index].key : ""
    }

    function chosenDrives() {
        return [root.card1Index, root.card2Index, root.card3Index].map(index => root.keyAt(root.drives, index))
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
