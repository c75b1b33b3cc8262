import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The drop-down panel under the status icon: the machine now, the busiest apps, Worth a Look.
Window {
    id: panel
    width: 360
    height: Math.min(content.implicitHeight + 2, 640)
    flags: Qt.Tool | Qt.FramelessWindowHint | Qt.WindowStaysOnTopHint
    title: qsTr("Omnira")
    color: "transparent"
    SystemPalette { id: sys }
    readonly property bool dark: sys.window.hslLightness < 0.5
    readonly property var f: omnira.figures
    property bool wasActive: false

    // Like any menu: it goes when the person clicks elsewhere, or presses Escape.
    onActiveChanged: {
        if (active) wasActive = true
        else if (wasActive) omnira.closePanel()
    }
    Shortcut { sequence: "Escape"; onActivated: omnira.closePanel() }

    Rectangle {
        anchors.fill: parent
        radius: 12
        color: sys.window
        border.color: panel.dark ? Qt.rgba(1, 1, 1, 0.12) : Qt.rgba(0, 0, 0, 0.15)

        ColumnLayout {
            id: content
            anchors.left: parent.left
            anchors.right: parent.right
            anchors.margins: 1
            spacing: 10

            RowLayout {
                Layout.fillWidth: true
                Layout.margins: 14
                Layout.bottomMargin: 0
                Text {
                    Layout.fillWidth: true
                    text: "Omnira"
                    font.pointSize: Qt.application.font.pointSize + 2
                    font.weight: Font.Bold
                    color: sys.windowText
                }
                Rectangle {
                    visible: panel.f.strained
                    radius: 9
                    implicitWidth: strainLabel.implicitWidth + 16
                    implicitHeight: strainLabel.implicitHeight + 4
                    color: Qt.rgba(0.96, 0.62, 0.04, 0.2)
                    Text { id: strainLabel; anchors.centerIn: parent; text: qsTr("Under strain"); color: sys.windowText }
                }
            }
            Card {
                Layout.fillWidth: true
                Layout.leftMargin: 12; Layout.rightMargin: 12
                Layout.preferredHeight: implicitHeight
                padding: 12
                Column {
                    width: parent.width
                    spacing: 12
                    Meter {
                        width: parent.width
                        label: qsTr("CPU")
                        figure: panel.f.cpuText
                        note: panel.f.loadText
                        fraction: panel.f.cpu
                        barColor: "#3b82f6"
                    }
                    Meter {
                        width: parent.width
                        label: qsTr("Memory")
                        figure: panel.f.memoryText
                        fraction: panel.f.memory
                        barColor: "#8b5cf6"
                    }
                    Meter {
                        width: parent.width
                        label: qsTr("Pressure")
                        figure: panel.f.pressureText
                        fraction: panel.f.pressure
                        barColor: panel.f.pressureLevel >= 4 ? "#dc2626" : panel.f.pressureLevel >= 2 ? "#f59e0b" : "#22c55e"
                    }
                }
            }
            Card {
                Layout.fillWidth: true
                Layout.leftMargin: 12; Layout.rightMargin: 12
                Layout.preferredHeight: implicitHeight
                padding: 12
                title: qsTr("Top Apps")
                Column {
                    width: parent.width
                    spacing: 2
                    // Ranked by CPU or by memory, as the person picks.
                    Row {
                        anchors.right: parent.right
                        spacing: 4
                        Repeater {
                            model: [{ key: "cpu", title: qsTr("CPU") }, { key: "memory", title: qsTr("Memory") }]
                            delegate: Button {
                                flat: true
                                checkable: true
                                checked: panel.f.topAppsBy === modelData.key
                                text: modelData.title
                                focusPolicy: Qt.StrongFocus
                                Accessible.name: qsTr("Top apps by %1").arg(modelData.title)
                                onClicked: panel.f.topAppsBy = modelData.key
                            }
                        }
                    }
                    Text {
                        visible: panel.f.topApps.length === 0
                        text: qsTr("Apps appear after the first process sample.")
                        color: sys.windowText
                        opacity: 0.65
                    }
                    Repeater {
                        model: panel.f.topApps
                        delegate: Rectangle {
                            width: parent.width
                            height: 28
                            radius: 6
                            color: hover.hovered || activeFocus ? Qt.rgba(sys.highlight.r, sys.highlight.g, sys.highlight.b, 0.14) : "transparent"
                            activeFocusOnTab: true
                            Accessible.role: Accessible.Button
                            Accessible.name: qsTr("%1, CPU %2, memory %3").arg(modelData.name).arg(modelData.cpu).arg(modelData.memory)
                            Keys.onReturnPressed: omnira.showApp(modelData.groupID)
                            HoverHandler { id: hover }
                            TapHandler { onTapped: omnira.showApp(modelData.groupID) }
                            RowLayout {
                                anchors.fill: parent
                                anchors.leftMargin: 6; anchors.rightMargin: 6
                                spacing: 8
                                Text { Layout.fillWidth: true; text: modelData.name; textFormat: Text.PlainText; color: sys.windowText; elide: Text.ElideRight }
                                Text { Layout.preferredWidth: 60; horizontalAlignment: Text.AlignRight; text: modelData.cpu; color: sys.windowText }
                                Text { Layout.preferredWidth: 70; horizontalAlignment: Text.AlignRight; text: modelData.memory; color: sys.windowText; opacity: 0.7 }
                            }
                        }
                    }
                }
            }
            Card {
                Layout.fillWidth: true
                Layout.leftMargin: 12; Layout.rightMargin: 12
                Layout.preferredHeight: implicitHeight
                padding: 12
                title: qsTr("Worth a Look")
                subtitle: omnira.worthALook.count > 3 ? qsTr("3 of %1").arg(omnira.worthALook.count) : ""
                InsightList {
                    width: parent.width
                    limit: 3
                    onPicked: omnira.open("overview")
                }
            }
            Card {
                id: plans
                Layout.fillWidth: true
                Layout.leftMargin: 12; Layout.rightMargin: 12
                Layout.preferredHeight: implicitHeight
                visible: omnira.usage.panelWindows.length > 0
                padding: 12
                readonly property int shown: 4
                title: qsTr("AI Plans")
                // The rest are a click away, on the AI Usage page.
                subtitle: omnira.usage.panelWindows.length > shown
                          ? qsTr("%1 of %2 · left · resets in · pace").arg(shown).arg(omnira.usage.panelWindows.length)
                          : qsTr("left · resets in · pace")
                Column {
                    width: parent.width
                    spacing: 2
                    Repeater {
                        model: omnira.usage.panelWindows.slice(0, plans.shown)
                        delegate: Rectangle {
                            width: parent.width
                            height: 28
                            radius: 6
                            color: planHover.hovered || activeFocus ? Qt.rgba(sys.highlight.r, sys.highlight.g, sys.highlight.b, 0.14) : "transparent"
                            activeFocusOnTab: true
                            Accessible.role: Accessible.Button
                            Accessible.name: [modelData.tool, modelData.label, modelData.leftText, modelData.resetText, modelData.paceText]
                                             .filter(t => t.length > 0).join(", ")
                            Keys.onReturnPressed: omnira.open("usage")
                            HoverHandler { id: planHover }
                            TapHandler { onTapped: omnira.open("usage") }
                            RowLayout {
                                anchors.fill: parent
                                anchors.leftMargin: 6; anchors.rightMargin: 6
                                spacing: 8
                                Text {
                                    Layout.fillWidth: true
                                    text: modelData.tool + " · " + modelData.label
                                    textFormat: Text.PlainText
                                    color: sys.windowText
                                    elide: Text.ElideRight
                                }
                                Text {
                                    Layout.preferredWidth: 40; horizontalAlignment: Text.AlignRight
                                    text: Math.round(modelData.left * 100) + "%"
                                    color: modelData.left < 0.1 ? (panel.dark ? "#fca5a5" : "#b91c1c") : sys.windowText
                                    font.weight: Font.DemiBold
                                }
                                Text {
                                    Layout.preferredWidth: 52; horizontalAlignment: Text.AlignRight
                                    text: modelData.resetIn
                                    color: sys.windowText; opacity: 0.7
                                }
                                Text {
                                    Layout.preferredWidth: 62; horizontalAlignment: Text.AlignRight
                                    text: modelData.paceWord
                                    color: modelData.late ? (panel.dark ? "#fca5a5" : "#b91c1c") : sys.windowText
                                    opacity: modelData.late ? 1 : 0.7
                                }
                            }
                        }
                    }
                }
            }
            RowLayout {
                Layout.fillWidth: true
                Layout.margins: 12
                Layout.topMargin: 0
                Button {
                    Layout.fillWidth: true
                    palette.button: sys.button
                    palette.buttonText: sys.buttonText
                    palette.mid: sys.mid
                    palette.dark: sys.dark
                    palette.light: sys.light
                    palette.highlight: sys.highlight
                    text: qsTr("Open Omnira")
                    Accessible.name: qsTr("Open the Omnira window")
                    onClicked: omnira.open("overview")
                }
            }
        }
    }
}
