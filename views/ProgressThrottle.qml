import QtQuick 2.15

/// The progress of the three cards as the page shows it. Small files are reported far faster than anyone reads, and
/// each frame takes processor time from the job: a row shows an end and the first few reports at once, more of them
/// ten times a second at most.
Timer {
    id: root

    readonly property list<ProgressState> rows: [ProgressState {}, ProgressState {}, ProgressState {}]
    /// How many reports a row shows without waiting; each tick gives one back.
    readonly property int allowance: 5
    /// Per row: reports shown beyond those given back, and the last report that waits for a tick.
    property var shown: []
    property var waiting: []

    function show(index, from, to, value, text) {
        const report = [from, to, value, text]
        if (value < to && root.shown[index] >= root.allowance) {
            root.waiting[index] = report
            return
        }
        delete root.waiting[index]
        root.draw(index, report)
    }

    function draw(index, report) {
        root.rows[index].show(...report)
        root.shown[index] = Math.min((root.shown[index] || 0) + 1, root.allowance)
        root.start()
    }

    interval: 100
    onTriggered: {
        const reports = root.waiting
        root.waiting = []
        root.shown = root.shown.map(count => Math.max(count - 1, 0))
        reports.forEach((report, index) => root.draw(index, report))
        if (root.shown.some(count => count > 0))
            root.start()
    }
}
