import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Omnira

// The recorded history: the machine and the busiest apps over a day, week, month or year,
// with export to CSV and deleting. Read afresh each time the page is shown.
ScrollView {
    id: page
    readonly property var h: omnira.history
    readonly property color cpuColor: "#3b82f6"
    readonly property color memoryColor: "#8b5cf6"
    readonly property color pressureColor: "#f59e0b"
    readonly property color readColor: "#14b8a6"
    readonly property color writeColor: "#ec4899"
    readonly property color inColor: "#22c55e"
    readonly property color outColor: "#0ea5e9"
    readonly property color grid: Qt.rgba(sys.windowText.r, sys.windowText.g, sys.windowText.b, 0.08)
    readonly property var spans: [
        { key: "day", title: qsTr("Day") }, { key: "week", title: qsTr("Week") },
        { key: "month", title: qsTr("Month") }, { key: "year", title: qsTr("Year") }
    ]
    contentWidth: availableWidth
    SystemPalette { id: sys }

    onVisibleChanged: if (visible) page.h.reload()
    Component.onCompleted: page.h.reload()
    // The history grows as the store records; soon while it is still empty (a first start).
    Timer {
        interval: page.h.hasRows ? 60000 : 10000
        running: page.visible
        repeat: true
        onTriggered: page.h.reload()
    }

    // The span's first and last slot under a chart.
    component Axis: Item {
        width: parent.width
        height: first.implicitHeight
        Text { id: first; text: page.h.firstLabel; color: sys.windowText; opacity: 0.6; font.pointSize: Qt.application.font.pointSize - 1 }
        Text { anchors.right: parent.right; text: page.h.lastLabel; color: sys.windowText; opacity: 0.6; font.pointSize: Qt.application.font.pointSize - 1 }
    }

    ColumnLayout {
        width: page.availableWidth
        spacing: 16

        RowLayout {
            Layout.topMargin: 20
            Layout.leftMargin: 24; Layout.rightMargin: 24
            spacing: 12
            Text {
                text: qsTr("History")
                font.pointSize: Qt.application.font.pointSize + 8
                font.weight: Font.Bold
                color: sys.windowText
                Accessible.role: Accessible.Heading
            }
            Item { Layout.fillWidth: true }
            Row {
                spacing: 0
                Repeater {
                    model: page.spans
                    delegate: Button {
                        text: modelData.title
                        // The palette's highlight, so the chosen span shows in both themes.
                        highlighted: page.h.span === modelData.key
                        focusPolicy: Qt.StrongFocus
                        Accessible.name: qsTr("Show the last %1").arg(modelData.title.toLowerCase())
                        onClicked: page.h.span = modelData.key
                    }
                }
            }
            Button {
                text: qsTr("Export CSV")
                enabled: !page.h.busy && page.h.hasRows
                focusPolicy: Qt.StrongFocus
                Accessible.description: qsTr("Saves the shown span as two CSV files in the Downloads folder")
                onClicked: page.h.exportCSV()
            }
            Button {
                text: qsTr("Delete…")
                enabled: !page.h.busy
                focusPolicy: Qt.StrongFocus
                Accessible.description: qsTr("Deletes older history or all of it, after asking")
                onClicked: deleteDialog.open()
            }
        }

        // What the last export wrote, or why something failed.
        Rectangle {
            Layout.fillWidth: true
            Layout.leftMargin: 24; Layout.rightMargin: 24
            visible: page.h.problem.length > 0 || page.h.exported.length > 0
            implicitHeight: notice.implicitHeight + 20
            radius: 8
            readonly property bool failed: page.h.problem.length > 0
            color: failed ? Qt.rgba(0.86, 0.15, 0.15, 0.14) : Qt.rgba(0.13, 0.77, 0.37, 0.14)
            border.color: failed ? "#dc2626" : "#22c55e"
            Text {
                id: notice
                x: 12; y: 10
                width: parent.width - 24
                text: parent.failed ? page.h.problem : qsTr("Exported to:") + "\n" + page.h.exported
                textFormat: Text.PlainText
                color: sys.windowText
                wrapMode: Text.WrapAnywhere
            }
        }

        Text {
            Layout.leftMargin: 24; Layout.rightMargin: 24
            Layout.fillWidth: true
            visible: !page.h.hasRows
            text: page.h.loading ? qsTr("Reading the history…") : page.h.emptyText
            color: sys.windowText
            opacity: 0.7
            wrapMode: Text.Wrap
        }

        Text {
            Layout.leftMargin: 24
            visible: page.h.hasRows
            text: page.h.recordedText + " · " + page.h.resolution + (page.h.loading ? " · " + qsTr("reading…") : "")
            color: sys.windowText
            opacity: 0.7
        }

        GridLayout {
            Layout.fillWidth: true
            Layout.leftMargin: 24; Layout.rightMargin: 24
            visible: page.h.hasRows
            columns: page.availableWidth > 900 ? 2 : 1
            columnSpacing: 16; rowSpacing: 16

            Card {
                Layout.fillWidth: true
                Layout.preferredHeight: implicitHeight
                Layout.alignment: Qt.AlignTop
                Layout.columnSpan: parent.columns
                title: qsTr("CPU")
                subtitle: page.h.cpuText
                Column {
                    width: parent.width
                    spacing: 4
                    Chart {
                        width: parent.width; height: 110
                        values: page.h.cpuSeries
                        maximum: 0; floor: 1
                        span: 2
                        color: page.cpuColor
                        gridColor: page.grid
                        Accessible.name: qsTr("Cores busy on average")
                    }
                    Axis {}
                }
            }
            Card {
                Layout.fillWidth: true
                Layout.preferredHeight: implicitHeight
                Layout.alignment: Qt.AlignTop
                Layout.columnSpan: parent.columns
                title: qsTr("Top Apps")
                subtitle: qsTr("by CPU time")
                Column {
                    width: parent.width
                    spacing: 6
                    Text {
                        visible: page.h.topApps.length === 0
                        text: qsTr("No app was recorded in this span.")
                        color: sys.windowText
                        opacity: 0.65
                    }
                    RowLayout {
                        visible: page.h.topApps.length > 0
                        width: parent.width
                        spacing: 8
                        Text { Layout.fillWidth: true; text: qsTr("App"); color: sys.windowText; opacity: 0.6 }
                        Text { Layout.preferredWidth: 72; horizontalAlignment: Text.AlignRight; text: qsTr("Seen"); color: sys.windowText; opacity: 0.6 }
                        Text { Layout.preferredWidth: 64; horizontalAlignment: Text.AlignRight; text: qsTr("CPU time"); color: sys.windowText; opacity: 0.6 }
                        Text { Layout.preferredWidth: 72; horizontalAlignment: Text.AlignRight; text: qsTr("Memory"); color: sys.windowText; opacity: 0.6 }
                        Text { Layout.preferredWidth: 72; horizontalAlignment: Text.AlignRight; text: qsTr("Disk"); color: sys.windowText; opacity: 0.6 }
                        Text { Layout.preferredWidth: 72; horizontalAlignment: Text.AlignRight; text: qsTr("Network"); color: sys.windowText; opacity: 0.6 }
                    }
                    Repeater {
                        model: page.h.topApps
                        delegate: Column {
                            width: parent.width
                            spacing: 3
                            Accessible.role: Accessible.ListItem
                            Accessible.name: qsTr("%1: CPU time %2, memory %3, disk %4, network %5")
                                .arg(modelData.name).arg(modelData.cpu).arg(modelData.memory).arg(modelData.disk).arg(modelData.network)
                            RowLayout {
                                width: parent.width
                                spacing: 8
                                Text { Layout.fillWidth: true; text: modelData.name; textFormat: Text.PlainText; elide: Text.ElideRight; color: sys.windowText }
                                Text { Layout.preferredWidth: 72; horizontalAlignment: Text.AlignRight; text: modelData.seen; color: sys.windowText; opacity: 0.8 }
                                Text { Layout.preferredWidth: 64; horizontalAlignment: Text.AlignRight; text: modelData.cpu; color: sys.windowText }
                                Text { Layout.preferredWidth: 72; horizontalAlignment: Text.AlignRight; text: modelData.memory; color: sys.windowText; opacity: 0.8 }
                                Text { Layout.preferredWidth: 72; horizontalAlignment: Text.AlignRight; text: modelData.disk; color: sys.windowText; opacity: 0.8 }
                                Text { Layout.preferredWidth: 72; horizontalAlignment: Text.AlignRight; text: modelData.network; color: sys.windowText; opacity: 0.8 }
                            }
                            Rectangle {
                                width: Math.max(3, parent.width * modelData.share); height: 3; radius: 1.5
                                color: page.cpuColor
                                opacity: 0.7
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
                subtitle: page.h.memoryText
                Column {
                    width: parent.width
                    spacing: 4
                    Chart {
                        width: parent.width; height: 110
                        values: page.h.memorySeries
                        maximum: 0; floor: 1e9
                        span: 2
                        color: page.memoryColor
                        gridColor: page.grid
                        Accessible.name: qsTr("Memory used on average")
                    }
                    Axis {}
                }
            }
            Card {
                Layout.fillWidth: true
                Layout.preferredHeight: implicitHeight
                Layout.alignment: Qt.AlignTop
                title: qsTr("Memory pressure")
                subtitle: page.h.pressureText
                Column {
                    width: parent.width
                    spacing: 4
                    Chart {
                        width: parent.width; height: 110
                        values: page.h.pressureSeries
                        maximum: 1
                        span: 2
                        color: page.pressureColor
                        gridColor: page.grid
                        Accessible.name: qsTr("Memory pressure on average")
                    }
                    Axis {}
                }
            }
            Card {
                Layout.fillWidth: true
                Layout.preferredHeight: implicitHeight
                Layout.alignment: Qt.AlignTop
                title: qsTr("Disk")
                subtitle: page.h.diskText
                Column {
                    width: parent.width
                    spacing: 4
                    Chart {
                        width: parent.width; height: 110
                        bars: true
                        values: page.h.diskReadSeries
                        secondValues: page.h.diskWriteSeries
                        maximum: 0; floor: 1e6
                        color: page.readColor
                        secondColor: page.writeColor
                        gridColor: page.grid
                        Accessible.name: qsTr("Disk read and written")
                    }
                    Axis {}
                    Row {
                        spacing: 16
                        Legend { swatch: page.readColor; label: qsTr("Read") }
                        Legend { swatch: page.writeColor; label: qsTr("Written") }
                    }
                }
            }
            Card {
                Layout.fillWidth: true
                Layout.preferredHeight: implicitHeight
                Layout.alignment: Qt.AlignTop
                title: qsTr("Network")
                subtitle: page.h.networkText
                Column {
                    width: parent.width
                    spacing: 4
                    Chart {
                        width: parent.width; height: 110
                        bars: true
                        values: page.h.networkInSeries
                        secondValues: page.h.networkOutSeries
                        maximum: 0; floor: 1e6
                        color: page.inColor
                        secondColor: page.outColor
                        gridColor: page.grid
                        Accessible.name: qsTr("Network in and out")
                    }
                    Axis {}
                    Row {
                        spacing: 16
                        Legend { swatch: page.inColor; label: qsTr("In") }
                        Legend { swatch: page.outColor; label: qsTr("Out") }
                    }
                }
            }
        }
        Item { Layout.preferredHeight: 8 }
    }

    Dialog {
        id: deleteDialog
        parent: Overlay.overlay
        anchors.centerIn: parent
        width: Math.min(480, page.width - 48)
        modal: true
        padding: 16
        title: qsTr("Delete history?")
        property bool all: false
        onAboutToShow: all = false
        contentItem: Column {
            spacing: 10
            RadioButton {
                width: parent.width
                checked: !deleteDialog.all
                text: qsTr("Older than %1 days (the span you keep)").arg(page.h.keptDays)
                onClicked: deleteDialog.all = false
            }
            RadioButton {
                width: parent.width
                checked: deleteDialog.all
                text: qsTr("All history")
                onClicked: deleteDialog.all = true
            }
            Text {
                width: parent.width
                wrapMode: Text.Wrap
                color: sys.windowText
                text: deleteDialog.all
                      ? qsTr("Everything Omnira has recorded about your computer and your apps will be deleted: the history, each app’s daily usage and the insights under “Worth a Look”. Recording starts again from now. You can’t undo this.")
                      : qsTr("History older than the time you chose (%1 days) will be deleted. You can’t undo this.").arg(page.h.keptDays)
            }
        }
        footer: DialogButtonBox {
            Button { text: qsTr("Cancel"); DialogButtonBox.buttonRole: DialogButtonBox.RejectRole }
            Button { text: qsTr("Delete"); DialogButtonBox.buttonRole: DialogButtonBox.AcceptRole }
        }
        onAccepted: deleteDialog.all ? page.h.deleteAll() : page.h.deleteOlder()
    }
}
