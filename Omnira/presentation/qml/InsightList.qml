import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The "Worth a Look" rows; with `dismissable`, each has a Dismiss button.
Column {
    id: list
    property bool dismissable: false
    property int limit: 1000
    signal picked()
    spacing: 8
    SystemPalette { id: sys }

    Text {
        visible: omnira.worthALook.count === 0
        text: qsTr("Nothing needs a look right now.")
        color: sys.windowText
        opacity: 0.65
    }
    Repeater {
        model: omnira.worthALook
        delegate: Rectangle {
            visible: index < list.limit
            width: list.width
            height: visible ? row.implicitHeight + 16 : 0
            radius: 8
            color: hover.hovered || activeFocus ? Qt.rgba(sys.highlight.r, sys.highlight.g, sys.highlight.b, 0.12)
                                          : Qt.rgba(sys.windowText.r, sys.windowText.g, sys.windowText.b, 0.04)
            activeFocusOnTab: !list.dismissable
            Accessible.role: Accessible.ListItem
            Accessible.name: title + ". " + detail
            Keys.onReturnPressed: list.picked()
            HoverHandler { id: hover }
            TapHandler { onTapped: list.picked() }
            RowLayout {
                id: row
                x: 10; y: 8
                width: parent.width - 20
                spacing: 10
                Column {
                    Layout.fillWidth: true
                    spacing: 2
                    Text {
                        width: parent.width
                        text: title
                        textFormat: Text.PlainText  // may quote a process's name
                        color: sys.windowText
                        font.weight: Font.DemiBold
                        wrapMode: Text.Wrap
                    }
                    Text {
                        width: parent.width
                        text: detail
                        textFormat: Text.PlainText
                        color: sys.windowText
                        opacity: 0.7
                        wrapMode: Text.Wrap
                        maximumLineCount: 3
                        elide: Text.ElideRight
                    }
                }
                Text {
                    Layout.alignment: Qt.AlignTop
                    text: when
                    color: sys.windowText
                    opacity: 0.6
                }
                Button {
                    visible: list.dismissable
                    Layout.alignment: Qt.AlignVCenter
                    text: qsTr("Dismiss")
                    Accessible.name: qsTr("Dismiss %1").arg(title)
                    onClicked: omnira.worthALook.dismiss(insightID)
                }
            }
        }
    }
    Text {
        visible: omnira.worthALook.problem.length > 0
        width: list.width
        text: omnira.worthALook.problem
        color: "#dc2626"
        wrapMode: Text.Wrap
    }
}
