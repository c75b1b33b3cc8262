import QtQuick

// A raised surface for one subject; everything on a page sits in one.
Rectangle {
    id: card
    property alias title: heading.text
    property alias subtitle: sub.text
    default property alias content: body.data
    property int padding: 16

    SystemPalette { id: sys }
    readonly property bool dark: sys.window.hslLightness < 0.5

    color: dark ? Qt.lighter(sys.window, 1.25) : sys.base
    radius: 10
    border.color: dark ? Qt.rgba(1, 1, 1, 0.08) : Qt.rgba(0, 0, 0, 0.09)
    implicitHeight: header.height + body.childrenRect.height + padding * 2 + (header.visible ? 10 : 0)

    Row {
        id: header
        visible: heading.text.length > 0
        x: card.padding; y: card.padding
        width: card.width - card.padding * 2
        height: visible ? heading.height : 0
        spacing: 8
        Text {
            id: heading
            font.pointSize: Qt.application.font.pointSize + 1
            font.weight: Font.DemiBold
            color: sys.windowText
            elide: Text.ElideRight
        }
        Text {
            id: sub
            anchors.baseline: heading.baseline
            color: sys.windowText
            opacity: 0.65
            elide: Text.ElideRight
            width: Math.max(0, header.width - heading.width - header.spacing)
        }
    }
    Item {
        id: body
        x: card.padding
        y: card.padding + header.height + (header.visible ? 10 : 0)
        width: card.width - card.padding * 2
        height: childrenRect.height
    }
}
