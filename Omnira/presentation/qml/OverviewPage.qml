import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Omnira

// The machine at a glance: live charts from the store's rings, the strain, Worth a Look.
ScrollView {
    id: page
    readonly property var f: omnira.figures
    readonly property color cpuColor: "#3b82f6"
    readonly property color memoryColor: "#8b5cf6"
    readonly property color pressureColor: "#f59e0b"
    readonly property color readColor: "#14b8a6"
    readonly property color writeColor: "#ec4899"
    readonly property color inColor: "#22c55e"
    readonly property color outColor: "#0ea5e9"
    readonly property color grid: Qt.rgba(sys.windowText.r, sys.windowText.g, sys.windowText.b, 0.08)
    contentWidth: availableWidth
    SystemPalette { id: sys }

    ColumnLayout {
        width: page.availableWidth
        spacing: 16

        Text {
            Layout.topMargin: 20
            Layout.leftMargin: 24
            text: qsTr("Overview")
            font.pointSize: Qt.application.font.pointSize + 8
            font.weight: Font.Bold
            color: sys.windowText
            Accessible.role: Accessible.Heading
        }

        // Strain: only said when there is some, in the one colour kept for it.
        Rectangle {
            Layout.fillWidth: true
            Layout.leftMargin: 24; Layout.rightMargin: 24
            visible: page.f.strained
            implicitHeight: strainText.implicitHeight + 20
            radius: 8
            color: Qt.rgba(0.96, 0.62, 0.04, 0.16)
            border.color: "#f59e0b"
            Text {
                id: strainText
                x: 12; y: 10
                width: parent.width - 24
                text: page.f.strainText
                color: sys.windowText
                wrapMode: Text.Wrap
            }
        }

        GridLayout {
            Layout.fillWidth: true
            Layout.leftMargin: 24; Layout.rightMargin: 24
            columns: page.availableWidth > 900 ? 2 : 1
            columnSpacing: 16; rowSpacing: 16

            Card {
                Layout.fillWidth: true
                Layout.columnSpan: parent.columns
                Layout.preferredHeight: implicitHeight
                title: qsTr("CPU")
                subtitle: page.f.hasSample ? page.f.cpuText + " · " + page.f.loadText : ""
                Column {
                    width: parent.width
                    spacing: 12
                    Chart {
                        width: parent.width; height: 110
                        values: page.f.cpuHistory
                        color: page.cpuColor
                        gridColor: page.grid
                        Accessible.name: qsTr("CPU over the last minutes")
                    }
                    Flow {
                        width: parent.width
                        spacing: 10
                        Repeater {
                            // By count, so a tick refills the charts rather than making them anew.
                            model: page.f.coreHistories.length
                            delegate: Column {
                                readonly property var series: page.f.coreHistories[index] || []
                                width: Math.max(110, (page.availableWidth - 48 - 32 - 10 * 7) / 8)
                                spacing: 2
                                Text {
                                    text: qsTr("Core %1 · %2 %").arg(index + 1)
                                          .arg(Math.round(100 * (series.length ? series[series.length - 1] : 0)))
                                    color: sys.windowText
                                    opacity: 0.7
                                    font.pointSize: Qt.application.font.pointSize - 1
                                }
                                Chart {
                                    width: parent.width; height: 36
                                    values: series
                                    color: page.cpuColor
                                    gridColor: "transparent"
                                }
                            }
                        }
                    }
                }
            }

            Card {
                Layout.fillWidth: true
                Layout.preferredHeight: implicitHeight
                Layout.alignment: Qt.AlignTop
                title: qsTr("Memory")
                subtitle: page.f.memoryText
                Column {
                    width: parent.width
                    spacing: 8
                    Chart {
                        width: parent.width; height: 110
                        values: page.f.memoryHistory
                        secondValues: page.f.pressureHistory
                        color: page.memoryColor
                        secondColor: page.pressureColor
                        gridColor: page.grid
                        Accessible.name: qsTr("Memory used and memory pressure")
                    }
                    Row {
                        spacing: 16
                        Legend { swatch: page.memoryColor; label: qsTr("Used") }
                        Legend { swatch: page.pressureColor; label: qsTr("Pressure: %1").arg(page.f.pressureText) }
                        Text { text: page.f.swapText; color: sys.windowText; opacity: 0.7 }
                    }
                }
            }

            Card {
                Layout.fillWidth: true
                Layout.preferredHeight: implicitHeight
                Layout.alignment: Qt.AlignTop
                title: qsTr("Disk")
                Column {
                    width: parent.width
                    spacing: 8
                    Chart {
                        width: parent.width; height: 110
                        values: page.f.diskReadHistory
                        secondValues: page.f.diskWriteHistory
                        maximum: 0; floor: 1e6
                        color: page.readColor
                        secondColor: page.writeColor
                        gridColor: page.grid
                        Accessible.name: qsTr("Disk reads and writes")
                    }
                    Row {
                        spacing: 16
                        Legend { swatch: page.readColor; label: page.f.diskReadText || qsTr("Read") }
                        Legend { swatch: page.writeColor; label: page.f.diskWriteText || qsTr("Write") }
                    }
                }
            }

            Card {
                Layout.fillWidth: true
                Layout.preferredHeight: implicitHeight
                Layout.alignment: Qt.AlignTop
                title: qsTr("Network")
                Column {
                    width: parent.width
                    spacing: 8
                    Chart {
                        width: parent.width; height: 110
                        values: page.f.networkInHistory
                        secondValues: page.f.networkOutHistory
                        maximum: 0; floor: 1e5
                        color: page.inColor
                        secondColor: page.outColor
                        gridColor: page.grid
                        Accessible.name: qsTr("Network in and out")
                    }
                    Row {
                        spacing: 16
                        Legend { swatch: page.inColor; label: page.f.networkInText || qsTr("In") }
                        Legend { swatch: page.outColor; label: page.f.networkOutText || qsTr("Out") }
                    }
                }
            }

            Card {
                Layout.fillWidth: true
                Layout.preferredHeight: implicitHeight
                Layout.alignment: Qt.AlignTop
                title: qsTr("Worth a Look")
                subtitle: omnira.worthALook.count > 0 ? String(omnira.worthALook.count) : ""
                InsightList {
                    width: parent.width
                    dismissable: true
                }
            }
        }
        Item { Layout.preferredHeight: 8 }
    }
}
