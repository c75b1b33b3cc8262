import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Omnira

// The AI tools turned on: each plan window with what is left, the reset and the pace, and
// the tokens of the last seven days by day and by model.
ScrollView {
    id: page
    readonly property var u: omnira.usage
    readonly property color tokenColor: "#8b5cf6"
    readonly property color grid: Qt.rgba(sys.windowText.r, sys.windowText.g, sys.windowText.b, 0.08)
    contentWidth: availableWidth
    SystemPalette { id: sys }

    onVisibleChanged: if (visible) page.u.refresh()

    function leftColor(left) { return left < 0.1 ? "#dc2626" : left < 0.3 ? "#f59e0b" : "#22c55e" }

    ColumnLayout {
        width: page.availableWidth
        spacing: 16

        RowLayout {
            Layout.topMargin: 20
            Layout.leftMargin: 24; Layout.rightMargin: 24
            Text {
                text: qsTr("AI Usage")
                font.pointSize: Qt.application.font.pointSize + 8
                font.weight: Font.Bold
                color: sys.windowText
                Accessible.role: Accessible.Heading
            }
            Item { Layout.fillWidth: true }
            Text { text: page.u.refreshedText; color: sys.windowText; opacity: 0.65 }
        }

        Text {
            Layout.leftMargin: 24; Layout.rightMargin: 24
            Layout.fillWidth: true
            visible: !page.u.hasTools
            text: page.u.emptyText
            color: sys.windowText
            opacity: 0.7
            wrapMode: Text.Wrap
        }

        Repeater {
            model: page.u.tools
            delegate: Card {
                id: toolCard
                readonly property var tool: modelData
                Layout.fillWidth: true
                Layout.leftMargin: 24; Layout.rightMargin: 24
                Layout.preferredHeight: implicitHeight
                title: tool.name
                subtitle: tool.hasTokens ? tool.todayText + " · " + tool.weekText : ""
                Column {
                    width: parent.width
                    spacing: 14

                    Text {
                        visible: tool.plansText.length > 0
                        width: parent.width
                        text: tool.plansText
                        color: sys.windowText
                        opacity: 0.7
                        wrapMode: Text.Wrap
                    }
                    Repeater {
                        model: tool.accounts
                        delegate: Column {
                            readonly property var account: modelData
                            width: parent.width
                            spacing: 8
                            Row {
                                spacing: 8
                                Text { text: account.heading; textFormat: Text.PlainText; color: sys.windowText; font.weight: Font.DemiBold }
                                Text { text: account.source; color: sys.windowText; opacity: 0.6 }
                            }
                            Repeater {
                                model: account.windows
                                delegate: Column {
                                    width: parent.width
                                    spacing: 4
                                    Accessible.role: Accessible.ProgressBar
                                    Accessible.name: [modelData.label, modelData.leftText, modelData.resetText, modelData.paceText].filter(t => t.length > 0).join(", ")
                                    RowLayout {
                                        width: parent.width
                                        spacing: 12
                                        Text { Layout.preferredWidth: 200; text: modelData.label; textFormat: Text.PlainText; elide: Text.ElideRight; color: sys.windowText }
                                        Text { Layout.preferredWidth: 80; text: modelData.leftText; color: sys.windowText; font.weight: Font.DemiBold }
                                        Text { Layout.preferredWidth: 150; text: modelData.resetText; color: sys.windowText; opacity: 0.75 }
                                        Text {
                                            Layout.fillWidth: true
                                            text: modelData.paceText
                                            color: modelData.late ? (page.dark ? "#fca5a5" : "#b91c1c") : sys.windowText
                                            opacity: modelData.late ? 1 : 0.75
                                            elide: Text.ElideRight
                                        }
                                    }
                                    Rectangle {
                                        width: parent.width; height: 6; radius: 3
                                        color: Qt.rgba(sys.windowText.r, sys.windowText.g, sys.windowText.b, 0.12)
                                        Rectangle {
                                            width: Math.max(modelData.left > 0 ? height : 0, parent.width * modelData.left)
                                            height: parent.height; radius: 3
                                            color: page.leftColor(modelData.left)
                                        }
                                    }
                                }
                            }
                        }
                    }
                    Repeater {
                        model: tool.problems
                        delegate: Text {
                            width: parent.width
                            text: modelData
                            textFormat: Text.PlainText
                            color: sys.windowText
                            opacity: 0.75
                            wrapMode: Text.Wrap
                        }
                    }

                    Text {
                        visible: tool.tokensText.length > 0
                        width: parent.width
                        text: tool.tokensText
                        color: sys.windowText
                        opacity: 0.7
                        wrapMode: Text.Wrap
                    }
                    Grid {
                        id: tokens
                        visible: tool.hasTokens
                        width: parent.width
                        columns: width > 700 ? 2 : 1
                        columnSpacing: 24; rowSpacing: 12
                        readonly property real cell: columns === 2 ? (width - columnSpacing) / 2 : width
                        Column {
                            width: tokens.cell
                            spacing: 4
                            Text { text: qsTr("Tokens by day"); color: sys.windowText; font.weight: Font.DemiBold }
                            Chart {
                                width: parent.width; height: 100
                                bars: true
                                values: tool.dayValues || []
                                maximum: 0; floor: 1
                                color: page.tokenColor
                                gridColor: page.grid
                                Accessible.name: qsTr("Tokens by day, the last seven days")
                            }
                            Row {
                                width: parent.width
                                Repeater {
                                    model: tool.days || []
                                    delegate: Column {
                                        width: parent.width / Math.max(1, (tool.days || []).length)
                                        Text { width: parent.width; horizontalAlignment: Text.AlignHCenter; text: modelData.totalText; color: sys.windowText; font.pointSize: Qt.application.font.pointSize - 1 }
                                        Text { width: parent.width; horizontalAlignment: Text.AlignHCenter; text: modelData.label; color: sys.windowText; opacity: 0.6; font.pointSize: Qt.application.font.pointSize - 1 }
                                    }
                                }
                            }
                        }
                        Column {
                            width: tokens.cell
                            spacing: 6
                            Text { text: qsTr("By model, last 7 days"); color: sys.windowText; font.weight: Font.DemiBold }
                            Repeater {
                                model: tool.models || []
                                delegate: Column {
                                    width: parent.width
                                    spacing: 3
                                    Accessible.role: Accessible.ListItem
                                    Accessible.name: modelData.name + ", " + modelData.totalText
                                    Item {
                                        width: parent.width; height: modelName.implicitHeight
                                        Text { id: modelName; text: modelData.name; textFormat: Text.PlainText; color: sys.windowText; elide: Text.ElideRight; width: parent.width - 70 }
                                        Text { anchors.right: parent.right; text: modelData.totalText; color: sys.windowText }
                                    }
                                    Rectangle {
                                        width: Math.max(3, parent.width * modelData.share); height: 8; radius: 2
                                        color: page.tokenColor
                                    }
                                }
                            }
                        }
                    }
                }
            }
        }
        Text {
            Layout.leftMargin: 24; Layout.rightMargin: 24
            Layout.fillWidth: true
            visible: page.u.quietText.length > 0
            text: page.u.quietText
            color: sys.windowText
            opacity: 0.7
            wrapMode: Text.Wrap
        }

        Item { Layout.preferredHeight: 8 }
    }
    readonly property bool dark: sys.window.hslLightness < 0.5
}
