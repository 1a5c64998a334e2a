import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15
import QtQuick.Window 2.15
import "../views"

/// The window. What the operator chose and what the check found is kept in its state object; its areas show it.
ApplicationWindow {
    id: root

    title: "Kelpora 360 Check"
    width: 700
    height: Math.max(minimumHeight, Math.min(820, Screen.desktopAvailableHeight - 40))
    minimumWidth: 700
    // Whatever is to be told is in sight.
    minimumHeight: Math.max(640, choices.implicitHeight + result.implicitHeight + foot.implicitHeight)
    visible: true
    // Texts stand as they are written; the style would set buttons in capitals.
    font.capitalization: Font.MixedCase

    CheckState {
        id: state

        onCheckRequested: checkController.check(cards, names, folder, seal)
    }

    Connections {
        target: checkController
        function onProgressed(card, share, text) { state.report(card, share, text) }
        function onEnded(verdict) {
            state.end(verdict)
            if (choices.keyboardAtCheck)
                result.takeKeyboard()
        }
    }

    ColumnLayout {
        anchors.fill: parent
        spacing: 0
        focus: true
        // While no control has the keyboard, Tab would go to the footer first.
        Keys.onTabPressed: nextItemInFocusChain().forceActiveFocus(Qt.TabFocusReason)

        ChoicesPage {
            id: choices

            Layout.fillWidth: true
            check: state
            onChooseSourceClicked: {
                sourceChooser.cardNumber = cardNumber
                sourceChooser.open()
            }
            onChooseFolderClicked: folderChooser.open()
            onRefreshCardsClicked: state.showDrives(checkController.getDrives(), 0)
            onCheckClicked: state.check()
            onStopClicked: checkController.stop()
        }
        ResultArea {
            id: result

            Layout.fillWidth: true
            Layout.fillHeight: true
            check: state
            onCopyClicked: {
                checkController.copyReport()
                state.reportText = "Copied."
            }
            onSaveClicked: reportChooser.open()
        }
    }

    footer: WindowFooter {
        id: foot

        version: checkController.getVersion()
        onExitClicked: root.close()
    }

    Chooser {
        id: sourceChooser

        property int cardNumber: 0

        objectName: "sourceChooser"
        title: "Choose a card"
        startsIn: "desktop"
        selectFolder: true
        onChosen: state.addSource(sourceChooser.cardNumber, path)
    }

    Chooser {
        id: folderChooser

        objectName: "folderChooser"
        title: "Choose the folder of the copies"
        startsIn: "movies"
        selectFolder: true
        onChosen: state.folder = path
    }

    Chooser {
        id: reportChooser

        objectName: "reportChooser"
        title: "Save the report"
        startsIn: "documents"
        saves: true
        nameFilters: ["Text (*.txt)"]
        onChosen: state.reportText = checkController.saveReport(path)
    }

    Component.onCompleted: {
        state.showDrives(checkController.getDrives(), 0)
        state.folder = checkController.getMoviesLocation()
    }
}
