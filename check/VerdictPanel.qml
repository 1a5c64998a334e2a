import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Controls.Material 2.15
import QtQuick.Layouts 1.15

/// The verdict, to be read from afar: all cards together, then each.
ColumnLayout {
    id: root

    /// CheckReport::shown().
    required property var verdict

    spacing: 8

    CardBox {
        objectName: "verdict"
        label: "Verdict"
        Layout.fillWidth: true
        tone: root.verdict.tone
        text: root.verdict.headline
        details: root.verdict.details
        pixelSize: 36
        detailLines: 10
    }

    RowLayout {
        Layout.fillHeight: false
        spacing: 8
        visible: root.verdict.cards.length > 0

        Repeater {
            model: root.verdict.cards

            CardBox {
                required property int index
                required property var modelData

                objectName: "verdict" + (index + 1)
                label: "Verdict of card " + (index + 1)
                Layout.fillWidth: true
                Layout.fillHeight: true
                Layout.preferredWidth: 1
                tone: modelData.tone
                text: modelData.text
                details: modelData.name
                pixelSize: 18
            }
        }
    }

    Label {
        objectName: "sealText"
        Layout.fillWidth: true
        visible: text !== ""
        text: root.verdict.sealText
        color: text.startsWith("Sealed") ? Material.foreground : Material.color(Material.Amber, Material.Shade200)
        Accessible.description: "Seal"
        textFormat: Text.PlainText
        wrapMode: Text.Wrap
    }
}
