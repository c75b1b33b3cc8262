import QtQuick

// A label, its figure and a thin bar for a share of a whole.
Column {
    id: meter
    property string label
    property string figure
    property string note
    property real fraction: 0
    property color barColor: "#3b82f6"
    spacing: 4
    SystemPalette { id: sys }
    Accessible.role: Accessible.ProgressBar
    Accessible.name: label + " " + figure

    Item {
        width: meter.width
        height: labelText.height
        Text { id: labelText; text: meter.label; color: sys.windowText; font.weight: Font.DemiBold }
        Text {
            anchors.right: parent.right
            text: meter.figure
            color: sys.windowText
            font.weight: Font.DemiBold
        }
    }
    Rectangle {
        width: meter.width; height: 6; radius: 3
        color: Qt.rgba(sys.windowText.r, sys.windowText.g, sys.windowText.b, 0.12)
        Rectangle {
            width: Math.max(height, parent.width * Math.min(1, Math.max(0, meter.fraction)))
            height: parent.height; radius: 3
            color: meter.barColor
        }
    }
    Text {
        visible: meter.note.length > 0
        text: meter.note
        color: sys.windowText
        opacity: 0.65
        font.pointSize: Qt.application.font.pointSize - 1
        width: meter.width
        elide: Text.ElideRight
    }
}
