import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// Every app group with its figures: click a header to sort, type to filter, expand a row
// (Enter, Space, or its arrow) for its processes, and quit the selected app or process.
FocusScope {
    id: page
    readonly property var table: omnira.apps
    readonly property var widths: [0, 90, 110, 120, 120, 100]
    // The selected process's pid; 0 when the app itself (omnira.selectedApp) is selected.
    property int selectedPid: 0
    property string outcome: ""
    SystemPalette { id: sys }

    function nameWidth() {
        var rest = 0
        for (var i = 1; i < widths.length; ++i) rest += widths[i]
        return Math.max(180, view.width - rest)
    }
    function rowOfSelection() {
        for (var row = 0; row < view.rows; ++row) {
            var index = view.modelIndex(Qt.point(0, row))
            if (table.groupOf(index) === omnira.selectedApp && table.pidOf(index) === selectedPid) return row
        }
        return -1
    }
    function select(row) {
        if (row < 0 || row >= view.rows) return
        var index = view.modelIndex(Qt.point(0, row))
        omnira.selectedApp = table.groupOf(index)
        selectedPid = table.pidOf(index)
        view.positionViewAtRow(row, TableView.Contain)
    }
    function askQuit(force) {
        if (omnira.selectedApp.length === 0) return
        confirm.groupID = omnira.selectedApp
        confirm.pid = selectedPid
        confirm.force = force
        confirm.question = table.quitQuestion(omnira.selectedApp, selectedPid, force)
        confirm.open()
    }

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: 24
        anchors.topMargin: 20
        spacing: 12

        RowLayout {
            Layout.fillWidth: true
            spacing: 8
            Text {
                Layout.fillWidth: true
                text: qsTr("Apps")
                font.pointSize: Qt.application.font.pointSize + 8
                font.weight: Font.Bold
                color: sys.windowText
                Accessible.role: Accessible.Heading
            }
            Button {
                id: quitButton
                text: qsTr("Quit…")
                enabled: omnira.selectedApp.length > 0
                focusPolicy: Qt.StrongFocus
                Accessible.name: page.selectedPid ? qsTr("Quit the selected process") : qsTr("Quit the selected app")
                onClicked: page.askQuit(false)
            }
            Button {
                text: qsTr("Force Quit…")
                enabled: omnira.selectedApp.length > 0
                focusPolicy: Qt.StrongFocus
                Accessible.name: page.selectedPid ? qsTr("Force quit the selected process") : qsTr("Force quit the selected app")
                Accessible.description: qsTr("Ends it at once, without letting it save")
                onClicked: page.askQuit(true)
            }
            TextField {
                id: filter
                Layout.preferredWidth: 240
                Layout.leftMargin: 8
                placeholderText: qsTr("Filter apps")
                text: page.table.filterText
                onTextChanged: page.table.filterText = text
                Accessible.name: qsTr("Filter apps by name")
                focus: true
                KeyNavigation.down: view
                Keys.onEscapePressed: text = ""
            }
        }

        // What the last Quit did, or why it did nothing.
        Text {
            id: outcomeText
            Layout.fillWidth: true
            visible: page.outcome.length > 0
            text: page.outcome
            textFormat: Text.PlainText
            wrapMode: Text.Wrap
            color: sys.windowText
            opacity: 0.8
            Accessible.role: Accessible.AlertMessage
            Accessible.name: text
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

            TreeView {
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
                Accessible.role: Accessible.Tree
                Accessible.name: qsTr("Apps")
                Keys.onUpPressed: page.select(Math.max(0, page.rowOfSelection() - 1))
                Keys.onDownPressed: page.select(page.rowOfSelection() + 1)
                // Enter or Space opens an app's processes and closes them again; on a process
                // it goes back to its app.
                function toggleSelected() {
                    var row = page.rowOfSelection()
                    if (row < 0) return
                    if (page.selectedPid === 0) view.toggleExpanded(row)
                }
                Keys.onReturnPressed: toggleSelected()
                Keys.onEnterPressed: toggleSelected()
                Keys.onSpacePressed: toggleSelected()
                Keys.onRightPressed: { var row = page.rowOfSelection(); if (row >= 0 && page.selectedPid === 0) view.expand(row) }
                Keys.onLeftPressed: {
                    var row = page.rowOfSelection()
                    if (row < 0) return
                    if (page.selectedPid !== 0) { page.selectedPid = 0; page.select(page.rowOfSelection()) }
                    else view.collapse(row)
                }
                Keys.onDeletePressed: page.askQuit(false)
                KeyNavigation.up: filter

                delegate: Rectangle {
                    id: cell
                    required property TreeView treeView
                    required property bool isTreeNode
                    required property bool expanded
                    required property int hasChildren
                    required property int depth
                    required property int row
                    required property int column
                    required property var display
                    required property string groupID
                    required property bool numeric
                    required property int pid
                    required property string helperRole

                    implicitHeight: 32
                    readonly property bool selected: groupID === omnira.selectedApp && pid === page.selectedPid
                    color: selected ? Qt.rgba(sys.highlight.r, sys.highlight.g, sys.highlight.b, view.activeFocus ? 0.35 : 0.2)
                                    : depth > 0 ? Qt.rgba(sys.windowText.r, sys.windowText.g, sys.windowText.b, 0.045)
                                    : row % 2 ? Qt.rgba(sys.windowText.r, sys.windowText.g, sys.windowText.b, 0.03) : "transparent"
                    Accessible.role: column === 0 ? Accessible.TreeItem : Accessible.Cell
                    Accessible.name: column === 0 && pid !== 0 ? qsTr("%1, PID %2 %3").arg(display).arg(pid).arg(helperRole) : String(display)

                    Text {
                        id: mark
                        visible: column === 0 && depth === 0 && hasChildren
                        x: 10
                        width: 14
                        anchors.verticalCenter: parent.verticalCenter
                        text: cell.expanded ? "▾" : "▸"
                        color: sys.windowText
                        opacity: 0.7
                        TapHandler { onTapped: { page.select(cell.row); cell.treeView.toggleExpanded(cell.row); view.forceActiveFocus() } }
                    }
                    Text {
                        visible: column > 0
                        anchors.fill: parent
                        anchors.leftMargin: 12; anchors.rightMargin: 12
                        horizontalAlignment: Text.AlignRight
                        verticalAlignment: Text.AlignVCenter
                        text: display
                        color: sys.windowText
                        opacity: depth > 0 ? 0.85 : 1
                        elide: Text.ElideRight
                    }
                    Row {
                        visible: column === 0
                        anchors.fill: parent
                        anchors.leftMargin: 28 + depth * 18
                        anchors.rightMargin: 12
                        spacing: 8
                        Text {
                            width: Math.min(implicitWidth, parent.width - (role.visible ? role.implicitWidth + 8 : 0))
                            height: parent.height
                            verticalAlignment: Text.AlignVCenter
                            text: display
                            textFormat: Text.PlainText  // names are any bytes a process chose
                            color: sys.windowText
                            elide: Text.ElideRight
                        }
                        Text {
                            id: role
                            visible: helperRole.length > 0
                            height: parent.height
                            verticalAlignment: Text.AlignVCenter
                            text: helperRole
                            color: sys.windowText
                            opacity: 0.55
                            font.pointSize: Qt.application.font.pointSize - 1
                        }
                    }
                    TapHandler {
                        onTapped: { page.select(cell.row); view.forceActiveFocus() }
                        onDoubleTapped: if (cell.depth === 0) cell.treeView.toggleExpanded(cell.row)
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

    Dialog {
        id: confirm
        property string groupID: ""
        property int pid: 0
        property bool force: false
        property string question: ""
        anchors.centerIn: parent
        width: Math.min(page.width - 48, 460)
        modal: true
        padding: 16
        title: force ? qsTr("Force Quit") : qsTr("Quit")
        Label {
            width: parent.width
            Accessible.role: Accessible.StaticText
            Accessible.name: text
            text: confirm.question
            textFormat: Text.PlainText
            wrapMode: Text.Wrap
        }
        footer: DialogButtonBox {
            Button {
                text: qsTr("Cancel")
                DialogButtonBox.buttonRole: DialogButtonBox.RejectRole
                Accessible.name: qsTr("Cancel, keep it running")
            }
            Button {
                text: confirm.force ? qsTr("Force Quit") : qsTr("Quit")
                DialogButtonBox.buttonRole: DialogButtonBox.AcceptRole
                highlighted: true
                Accessible.name: confirm.force ? qsTr("Force quit it now") : qsTr("Quit it now")
            }
        }
        onAccepted: {
            page.outcome = page.table.quit(groupID, pid, force)
            view.forceActiveFocus()
        }
        onRejected: view.forceActiveFocus()
    }
}
