import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// Developer project folders with something running in them: their processes, ports, idle
// dev servers and Compose containers; containers of no project in a section of their own.
FocusScope {
    id: page
    readonly property var model: omnira.projects
    readonly property color idleColor: "#f59e0b"
    readonly property int processesShown: 8
    SystemPalette { id: sys }
    readonly property bool dark: sys.window.hslLightness < 0.5
    readonly property color line: Qt.rgba(sys.windowText.r, sys.windowText.g, sys.windowText.b, 0.1)

    // One line of figures under a project: a name on the left, figures in fixed columns.
    component FigureRow: RowLayout {
        id: figureRow
        property string name
        property string detail
        property string chip
        property var figures: []
        property bool heading: false
        spacing: 10
        // The name, with its chip right after it, so the columns stay put.
        Item {
            Layout.fillWidth: true
            Layout.minimumWidth: 80
            implicitHeight: nameText.implicitHeight
            Text {
                id: nameText
                width: Math.min(implicitWidth, parent.width - (chip.visible ? chip.width + 8 : 0))
                anchors.verticalCenter: parent.verticalCenter
                text: figureRow.name
                textFormat: Text.PlainText
                elide: Text.ElideRight
                color: sys.windowText
                opacity: figureRow.heading ? 0.6 : 1
                font.weight: figureRow.heading ? Font.DemiBold : Font.Normal
            }
            Rectangle {
                id: chip
                visible: figureRow.chip.length > 0
                x: nameText.width + 8
                anchors.verticalCenter: parent.verticalCenter
                width: chipText.implicitWidth + 12
                height: chipText.implicitHeight + 4
                radius: height / 2
                color: Qt.rgba(0.96, 0.62, 0.04, 0.18)
                border.color: page.idleColor
                Text {
                    id: chipText
                    anchors.centerIn: parent
                    text: figureRow.chip
                    color: sys.windowText
                    font.pointSize: Qt.application.font.pointSize - 1
                }
            }
        }
        Text {
            visible: figureRow.detail.length > 0
            Layout.preferredWidth: 170
            text: figureRow.detail
            textFormat: Text.PlainText
            elide: Text.ElideRight
            color: sys.windowText
            opacity: 0.6
        }
        Repeater {
            model: figureRow.figures
            Text {
                Layout.preferredWidth: index === figureRow.figures.length - 1 ? 120 : 84
                horizontalAlignment: Text.AlignRight
                text: modelData
                elide: Text.ElideRight
                color: sys.windowText
                opacity: figureRow.heading ? 0.6 : 1
                font.weight: figureRow.heading ? Font.DemiBold : Font.Normal
            }
        }
    }

    component ContainerRows: ColumnLayout {
        id: rows
        property var containers: []
        spacing: 4
        FigureRow {
            Layout.fillWidth: true
            heading: true
            name: qsTr("Container")
            detail: qsTr("State")
            figures: [qsTr("CPU"), qsTr("Memory"), qsTr("Ports")]
        }
        Repeater {
            model: rows.containers
            FigureRow {
                Layout.fillWidth: true
                name: modelData.name
                detail: modelData.state
                figures: [modelData.cpu, modelData.memory, modelData.ports]
                Accessible.role: Accessible.ListItem
                Accessible.name: qsTr("Container %1, %2, CPU %3, memory %4").arg(modelData.name).arg(modelData.state).arg(modelData.cpu).arg(modelData.memory)
            }
        }
    }

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: 24
        anchors.topMargin: 20
        spacing: 12

        Text {
            text: qsTr("Projects")
            font.pointSize: Qt.application.font.pointSize + 8
            font.weight: Font.Bold
            color: sys.windowText
            Accessible.role: Accessible.Heading
        }

        ListView {
            id: list
            Layout.fillWidth: true
            Layout.fillHeight: true
            clip: true
            spacing: 12
            model: page.model
            focus: true
            activeFocusOnTab: true
            keyNavigationEnabled: true
            boundsBehavior: Flickable.StopAtBounds
            ScrollBar.vertical: ScrollBar {}
            Accessible.role: Accessible.List
            Accessible.name: qsTr("Projects")
            // Enter or Space shows all of a long project's processes, or the first few again.
            Keys.onReturnPressed: if (currentItem) currentItem.showsAll = !currentItem.showsAll
            Keys.onEnterPressed: if (currentItem) currentItem.showsAll = !currentItem.showsAll
            Keys.onSpacePressed: if (currentItem) currentItem.showsAll = !currentItem.showsAll

            delegate: Rectangle {
                id: card
                required property int index
                required property string name
                required property string path
                required property string cpu
                required property string memory
                required property string ports
                required property string summary
                required property var processes
                required property var containers
                // A folder with hundreds of processes stays readable: the first few, then all on request.
                property bool showsAll: false
                readonly property int shown: showsAll ? processes.length : Math.min(processes.length, page.processesShown)

                width: ListView.view.width - 14
                implicitHeight: body.implicitHeight + 28
                radius: 10
                color: page.dark ? Qt.lighter(sys.window, 1.25) : sys.base
                border.color: ListView.isCurrentItem && list.activeFocus ? sys.highlight
                              : page.dark ? Qt.rgba(1, 1, 1, 0.08) : Qt.rgba(0, 0, 0, 0.09)
                border.width: ListView.isCurrentItem && list.activeFocus ? 2 : 1
                Accessible.role: Accessible.ListItem
                Accessible.name: qsTr("%1, %2, CPU %3, memory %4").arg(name).arg(summary).arg(cpu).arg(memory)
                TapHandler { onTapped: { list.currentIndex = card.index; list.forceActiveFocus() } }

                ColumnLayout {
                    id: body
                    x: 16; y: 14
                    width: parent.width - 32
                    spacing: 6

                    RowLayout {
                        Layout.fillWidth: true
                        spacing: 10
                        Text {
                            text: card.name
                            textFormat: Text.PlainText
                            font.pointSize: Qt.application.font.pointSize + 2
                            font.weight: Font.DemiBold
                            color: sys.windowText
                        }
                        Text {
                            Layout.fillWidth: true
                            text: card.path
                            textFormat: Text.PlainText
                            elide: Text.ElideMiddle
                            color: sys.windowText
                            opacity: 0.6
                        }
                        Text {
                            text: qsTr("CPU %1 · %2").arg(card.cpu).arg(card.memory)
                            color: sys.windowText
                            font.weight: Font.DemiBold
                        }
                    }
                    Text {
                        Layout.fillWidth: true
                        text: card.summary + (card.ports.length > 0 ? qsTr(" · ports %1").arg(card.ports) : "")
                        wrapMode: Text.Wrap
                        color: sys.windowText
                        opacity: 0.75
                    }
                    Rectangle { Layout.fillWidth: true; Layout.topMargin: 4; height: 1; color: page.line; visible: card.processes.length > 0 }
                    FigureRow {
                        Layout.fillWidth: true
                        visible: card.processes.length > 0
                        heading: true
                        name: qsTr("Process")
                        detail: qsTr("App")
                        figures: [qsTr("PID"), qsTr("CPU"), qsTr("Memory"), qsTr("Ports")]
                    }
                    Repeater {
                        model: card.processes.slice(0, card.shown)
                        FigureRow {
                            Layout.fillWidth: true
                            name: modelData.name
                            detail: modelData.app
                            chip: modelData.idle ? qsTr("idle dev server") : modelData.devServer ? qsTr("dev server") : ""
                            figures: [String(modelData.pid), modelData.cpu, modelData.memory, modelData.ports]
                            Accessible.role: Accessible.ListItem
                            Accessible.name: qsTr("%1, PID %2, CPU %3, memory %4").arg(modelData.name).arg(modelData.pid).arg(modelData.cpu).arg(modelData.memory)
                                             + (modelData.idle ? qsTr(", an idle dev server") : "")
                        }
                    }
                    Button {
                        visible: card.processes.length > page.processesShown
                        flat: true
                        text: card.showsAll ? qsTr("Show fewer") : qsTr("Show all %1 processes").arg(card.processes.length)
                        focusPolicy: Qt.StrongFocus
                        Accessible.name: text
                        onClicked: card.showsAll = !card.showsAll
                    }
                    Rectangle { Layout.fillWidth: true; Layout.topMargin: 4; height: 1; color: page.line; visible: card.containers.length > 0 }
                    ContainerRows {
                        Layout.fillWidth: true
                        visible: card.containers.length > 0
                        containers: card.containers
                    }
                }
            }

            footer: ColumnLayout {
                width: ListView.view.width - 14
                visible: page.model.otherContainers.length > 0
                height: visible ? implicitHeight : 0
                spacing: 8
                Text {
                    Layout.topMargin: 16
                    text: qsTr("Containers of no project")
                    font.pointSize: Qt.application.font.pointSize + 2
                    font.weight: Font.DemiBold
                    color: sys.windowText
                    Accessible.role: Accessible.Heading
                }
                Rectangle {
                    Layout.fillWidth: true
                    implicitHeight: others.implicitHeight + 28
                    radius: 10
                    color: page.dark ? Qt.lighter(sys.window, 1.25) : sys.base
                    border.color: page.dark ? Qt.rgba(1, 1, 1, 0.08) : Qt.rgba(0, 0, 0, 0.09)
                    ContainerRows {
                        id: others
                        x: 16; y: 14
                        width: parent.width - 32
                        containers: page.model.otherContainers
                    }
                }
            }
        }
    }

    Text {
        anchors.centerIn: parent
        width: parent.width - 96
        horizontalAlignment: Text.AlignHCenter
        visible: page.model.emptyText.length > 0
        text: page.model.emptyText
        wrapMode: Text.Wrap
        color: sys.windowText
        opacity: 0.65
    }
}
