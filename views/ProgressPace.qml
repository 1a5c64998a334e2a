import QtQuick 2.15

/// Brings what jobs report to their rows. Small files are reported far faster than anyone reads, and each frame
/// takes processor time from the job: a row shows an end at once, everything else ten times a second at most.
Timer {
    id: root

    /// The ProgressRows.
    required property var rows
    /// Per row: shown since the last tick, and the last report that waits for the next.
    property var shown: []
    property var waiting: []

    function show(index, from, to, value, text) {
        const report = [from, to, value, text]
        if (value < to && root.shown[index]) {
            root.waiting[index] = report
            return
        }
        delete root.waiting[index]
        root.draw(index, report)
    }

    function draw(index, report) {
        root.rows[index].show(...report)
        root.shown[index] = true
        root.start()
    }

    interval: 100
    onTriggered: {
        const reports = root.waiting
        root.shown = []
        root.waiting = []
        reports.forEach((report, index) => root.draw(index, report))
    }
}
