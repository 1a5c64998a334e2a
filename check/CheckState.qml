import QtQuick 2.15
import "../views"

/// What the operator chose for a check, how far it is, and its verdict.
DriveState {
    id: root

    property string folder: ""
    property bool seal: false

    property bool running: false
    readonly property list<ProgressState> progress: [ProgressState {}, ProgressState {}, ProgressState {}]
    /// What the last check found, null if there is none: CheckReport::shown().
    property var verdict: null
    /// What became of the report.
    property string reportText: ""

    /// What a verdict is about; as soon as it changes, the verdict is of something else.
    readonly property string chosen: [...root.cards, root.folder].join("\n")
    /// The same when the check that runs was begun.
    property string begun: ""
    /// The paths of the cards; "" where there is none.
    readonly property var cards: root.chosenDrives()
    readonly property bool ready: root.cards.some(path => path !== "") && root.folder !== ""

    signal checkRequested(var cards, var names, string folder, bool seal)

    function check() {
        if (root.running || !root.ready)
            return
        root.clear()
        root.running = true
        root.begun = root.chosen
        const indexes = [root.card1Index, root.card2Index, root.card3Index]
        root.checkRequested(root.cards, root.cards.map((path, card) => path ? root.driveModel.get(indexes[card]).text : ""),
                            root.folder, root.seal)
    }

    function clear() {
        root.verdict = null
        root.reportText = ""
    }

    function report(card, share, text) {
        root.progress[card - 1].show(0, 1, share, text)
    }

    function end(verdict) {
        root.running = false
        // A chooser that was open already may have changed the choice.
        root.verdict = root.chosen === root.begun ? verdict : null
    }

    onChosenChanged: root.clear()
}
