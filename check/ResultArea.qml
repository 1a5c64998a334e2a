import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15
import "../views"

/// What comes of a check: how far it is, then its verdict and its report. Empty before.
Item {
    id: root

    required property CheckState check

    signal copyClicked()
    signal saveClicked()

    /// Gives the keyboard to the report, if there is one: screen readers then tell it.
    function takeKeyboard() {
        if (verdictLoader.item && verdictLoader.item.report.visible)
            verdictLoader.item.report.takeKeyboard()
    }

    implicitHeight: root.check.running ? progressPage.implicitHeight : verdictLoader.active ? verdictLoader.implicitHeight + 12 : 0

    FormPage {
        id: progressPage

        anchors.left: parent.left
        anchors.right: parent.right
        visible: root.check.running
        title: "Progress"

        Heading { text: "Progress:" }
        ProgressRow {
            objectName: "card1Progress"
            visible: root.check.cards[0] !== ""
            label: "Card 1"
            progress: root.check.progress[0]
        }
        ProgressRow {
            objectName: "card2Progress"
            visible: root.check.cards[1] !== ""
            label: "Card 2"
            progress: root.check.progress[1]
        }
        ProgressRow {
            objectName: "card3Progress"
            visible: root.check.cards[2] !== ""
            label: "Card 3"
            progress: root.check.progress[2]
        }
    }

    Loader {
        id: verdictLoader

        anchors.fill: parent
        anchors.leftMargin: 20
        anchors.rightMargin: 20
        anchors.topMargin: 12
        active: root.check.verdict !== null
        sourceComponent: ColumnLayout {
            readonly property alias report: reportArea

            spacing: 8

            VerdictPanel {
                Layout.fillWidth: true
                Layout.fillHeight: false
                verdict: root.check.verdict
            }
            ReportArea {
                id: reportArea

                Layout.fillWidth: true
                Layout.fillHeight: true
                visible: text !== ""
                headline: root.check.verdict.headline
                text: root.check.verdict.text
                message: root.check.reportText
                onCopyClicked: root.copyClicked()
                onSaveClicked: root.saveClicked()
            }
            // Holds the verdict at the top where there is no report.
            Item {
                Layout.fillHeight: true
                visible: root.check.verdict.text === ""
            }
        }
    }
}
