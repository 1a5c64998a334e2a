import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Controls.Material 2.15
import QtQuick.Layouts 1.15
import "../views"

/// All that a check has to tell, to be read, copied and saved.
ColumnLayout {
    id: root

    required property string headline
    required property string text
    /// What became of it.
    required property string message

    signal copyClicked()
    signal saveClicked()

    function takeKeyboard() { report.forceActiveFocus(Qt.TabFocusReason) }

    spacing: 8

    ControlFrame {
        Layout.fillWidth: true
        Layout.fillHeight: true
        // The window grows rather than hide it.
        implicitHeight: 100
        focused: report.activeFocus && report.focusReason !== Qt.MouseFocusReason

        ScrollView {
            id: scroller

            anchors.fill: parent
            clip: true
            ScrollBar.vertical: ThinScrollBar {
                parent: scroller
                anchors.top: parent.top
                anchors.right: parent.right
                anchors.bottom: parent.bottom
            }
            ScrollBar.horizontal.policy: ScrollBar.AlwaysOff

            TextArea {
                id: report

                // The cursor isn't seen: the keys that would move it scroll.
                function scroll(event) {
                    const step = { [Qt.Key_Down]: 20, [Qt.Key_Up]: -20, [Qt.Key_PageDown]: scroller.height - 40,
                                   [Qt.Key_PageUp]: 40 - scroller.height }[event.key]
                    if (!step || event.modifiers & Qt.ShiftModifier)
                        return
                    const view = scroller.contentItem
                    view.contentY = Math.max(0, Math.min(view.contentY + step, view.contentHeight - view.height))
                    event.accepted = true
                }

                objectName: "report"
                Accessible.name: "Report"
                // Which screen readers get as its description; it is never seen.
                placeholderText: root.headline
                text: root.text
                textFormat: TextEdit.PlainText
                readOnly: true
                selectByMouse: true
                selectByKeyboard: true
                wrapMode: TextEdit.WrapAnywhere
                font.pixelSize: 14
                leftPadding: 12
                rightPadding: 12
                selectedTextColor: "black"
                background: null
                Keys.onPressed: scroll(event)
            }
        }
    }

    RowLayout {
        Layout.fillWidth: true
        spacing: 8

        Label {
            objectName: "reportMessage"
            Layout.fillWidth: true
            text: root.message
            Accessible.description: "Report"
            textFormat: Text.PlainText
            elide: Text.ElideMiddle
            color: text.startsWith("Not") ? Material.color(Material.Red, Material.Shade200) : Material.foreground
        }
        FlatButton {
            objectName: "copyButton"
            text: "Copy"
            onClicked: root.copyClicked()
        }
        FlatButton {
            objectName: "saveButton"
            text: "Save ..."
            onClicked: root.saveClicked()
        }
    }
}
