import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// Every app group with its figures: click a header to sort, type to filter.
FocusScope {
    id: page
    readonly property var table: omnira.apps
    readonly property var widths: [0, 90, 110, 120, 120, 100]
    SystemPalette { id: sys }

    function nameWidth() {
        var rest = 0
        for (var i = 1; i < widths.length; ++i) rest += widths[i]
        return Math.max(180, view.width - rest)
    }
    function rowOfSelection() {
        for (var row = 0; row < view.rows; ++row)
            if (table.idAt(row) === omnira.selectedApp) return row
        return -1
    }
    function select(row) {
        if (row < 0 || row >= view.rows) return
        omnira.selectedApp = table.idAt(row)
        view.positionViewAtRow(row, TableView.Contain)
    }

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: 24
        anchors.topMargin: 20
        spacing: 12

        RowLayout {
            Layout.fillWidth: true
            Text {
                Layout.fillWidth: true
                text: qsTr("Apps")
                font.pointSize: Qt.application.font.pointSize + 8
                font.weight: Font.Bold
                color: sys.windowText
                Accessible.role: Accessible.Heading
            }
            TextField {
                id: filter
                Layout.preferredWidth: 260
                placeholderText: qsTr("Filter apps")
                text: page.table.filterText
                onTextChanged: page.table.filterText = text
                Accessible.name: qsTr("Filter apps by name")
                focus: true
                KeyNavigation.down: view
                Keys.onEscapePressed: text = ""
            }
        }

        // A card's look, but the table fills it rather than sizing it.
        Rectangle {
            Layout.fillWidth: true
            Layout.fillHeight: true
            readonly property bool dark: sys.window.hslLightness < 0.5
            color: dark ? Qt.lighter(sys.window, 1.25) : sys.base
            radius: 10
            border.color: dark ? Qt.rgba(1, 1, 1, 0.08) : Qt.rgba(0, 0, 0, 0.09)
            clip: true

            HorizontalHeaderView {
                id: header
                x: 1; y: 4
                width: parent.width - 2
                syncView: view
                clip: true
                delegate: Rectangle {
                    implicitHeight: 34
                    color: "transparent"
                    readonly property bool sorted: page.table.sortColumn === column
                    Text {
                        anchors.fill: parent
                        anchors.leftMargin: 12; anchors.rightMargin: 12
                        horizontalAlignment: column === 0 ? Text.AlignLeft : Text.AlignRight
                        verticalAlignment: Text.AlignVCenter
                        text: display + (sorted ? (page.table.ascending ? "  ▲" : "  ▼") : "")
                        color: sys.windowText
                        opacity: sorted ? 1 : 0.7
                        font.weight: Font.DemiBold
                        elide: Text.ElideRight
                    }
                    Rectangle { anchors.bottom: parent.bottom; width: parent.width; height: 1; color: Qt.rgba(sys.windowText.r, sys.windowText.g, sys.windowText.b, 0.12) }
                    TapHandler { onTapped: page.table.sortBy(column) }
                    Accessible.role: Accessible.ColumnHeader
                    Accessible.name: qsTr("Sort by %1").arg(display)
                }
            }

            TableView {
                id: view
                anchors.top: header.bottom
                anchors.bottom: parent.bottom
                anchors.bottomMargin: 4
                x: 1
                width: parent.width - 2
                clip: true
                model: page.table
                boundsBehavior: Flickable.StopAtBounds
                columnWidthProvider: function (column) { return column === 0 ? page.nameWidth() : page.widths[column] }
                onWidthChanged: forceLayout()
                ScrollBar.vertical: ScrollBar {}
                activeFocusOnTab: true
                Accessible.role: Accessible.Table
                Accessible.name: qsTr("Apps")
                Keys.onUpPressed: page.select(Math.max(0, page.rowOfSelection() - 1))
                Keys.onDownPressed: page.select(page.rowOfSelection() + 1)
                KeyNavigation.up: filter

                delegate: Rectangle {
                    implicitHeight: 32
                    readonly property bool selected: groupID === omnira.selectedApp
                    color: selected ? Qt.rgba(sys.highlight.r, sys.highlight.g, sys.highlight.b, view.activeFocus ? 0.35 : 0.2)
                                    : row % 2 ? Qt.rgba(sys.windowText.r, sys.windowText.g, sys.windowText.b, 0.03) : "transparent"
                    Text {
                        anchors.fill: parent
                        anchors.leftMargin: 12; anchors.rightMargin: 12
                        horizontalAlignment: numeric ? Text.AlignRight : Text.AlignLeft
                        verticalAlignment: Text.AlignVCenter
                        text: display
                        textFormat: Text.PlainText  // names are any bytes a process chose
                        color: sys.windowText
                        elide: Text.ElideRight
                    }
                    TapHandler {
                        onTapped: { omnira.selectedApp = groupID; view.forceActiveFocus() }
                    }
                }
            }
            Text {
                anchors.centerIn: parent
                visible: view.rows === 0
                text: page.table.filterText.length > 0 ? qsTr("No app matches “%1”.").arg(page.table.filterText)
                                                        : qsTr("Apps appear after the first process sample.")
                color: sys.windowText
                opacity: 0.65
            }
        }
    }
}
