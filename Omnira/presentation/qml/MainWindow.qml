import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

ApplicationWindow {
    id: window
    width: 1120
    height: 760
    minimumWidth: 720
    minimumHeight: 480
    title: qsTr("Omnira")
    SystemPalette { id: sys }
    readonly property bool dark: sys.window.hslLightness < 0.5
    // The side bar's pages, in order; each is loaded the first time it is shown.
    readonly property var pages: [
        { key: "overview", title: qsTr("Overview"), mark: "◔", source: "OverviewPage.qml" },
        { key: "apps", title: qsTr("Apps"), mark: "▤", source: "AppsPage.qml" },
        { key: "projects", title: qsTr("Projects"), mark: "⌂", source: "ProjectsPage.qml" },
        { key: "history", title: qsTr("History"), mark: "◷", source: "HistoryPage.qml" },
        { key: "usage", title: qsTr("AI Usage"), mark: "◈", source: "UsagePage.qml" },
        { key: "settings", title: qsTr("Settings"), mark: "⚙", source: "SettingsPage.qml" }
    ]
    readonly property int pageIndex: Math.max(0, pages.findIndex(p => p.key === omnira.page))
    color: sys.window
    // The controls take the application's palette, which follows the desktop's theme.
    palette.window: sys.window
    palette.windowText: sys.windowText
    palette.base: sys.base
    palette.alternateBase: sys.alternateBase
    palette.text: sys.text
    palette.button: sys.button
    palette.buttonText: sys.buttonText
    palette.highlight: sys.highlight
    palette.highlightedText: sys.highlightedText
    palette.placeholderText: sys.placeholderText
    palette.mid: sys.mid
    palette.dark: sys.dark
    palette.light: sys.light

    // Ctrl+1 … Ctrl+9 go to the pages in the side bar's order.
    Instantiator {
        model: window.pages
        delegate: Shortcut {
            sequence: "Ctrl+" + (index + 1)
            onActivated: omnira.page = modelData.key
        }
    }
    Shortcut { sequences: [StandardKey.Close]; onActivated: window.close() }

    RowLayout {
        anchors.fill: parent
        spacing: 0

        Rectangle {
            Layout.fillHeight: true
            Layout.preferredWidth: 200
            color: window.dark ? Qt.darker(sys.window, 1.25) : Qt.darker(sys.window, 1.04)
            Column {
                anchors.fill: parent
                anchors.margins: 12
                anchors.topMargin: 20
                spacing: 4
                Text {
                    leftPadding: 10
                    bottomPadding: 14
                    text: "Omnira"
                    font.pointSize: Qt.application.font.pointSize + 4
                    font.weight: Font.Bold
                    color: sys.windowText
                }
                Repeater {
                    model: window.pages
                    delegate: ItemDelegate {
                        id: entry
                        width: parent.width
                        readonly property bool current: omnira.page === modelData.key
                        text: modelData.title
                        focusPolicy: Qt.StrongFocus
                        Accessible.name: modelData.title
                        highlighted: current
                        onClicked: omnira.page = modelData.key
                        background: Rectangle {
                            radius: 8
                            color: entry.current ? Qt.rgba(sys.highlight.r, sys.highlight.g, sys.highlight.b, 0.22)
                                   : entry.hovered || entry.visualFocus ? Qt.rgba(sys.windowText.r, sys.windowText.g, sys.windowText.b, 0.07)
                                   : "transparent"
                            border.color: entry.visualFocus ? sys.highlight : "transparent"
                        }
                        contentItem: Text {
                            text: modelData.mark + "   " + modelData.title
                            color: sys.windowText
                            font.weight: entry.current ? Font.DemiBold : Font.Normal
                            verticalAlignment: Text.AlignVCenter
                        }
                    }
                }
            }
            // The foot of the side bar: what a person pastes into a bug report.
            Button {
                id: reportButton
                anchors.left: parent.left
                anchors.right: parent.right
                anchors.bottom: parent.bottom
                anchors.margins: 12
                property bool copied: false
                text: copied ? qsTr("Report copied") : qsTr("Copy diagnostic report")
                focusPolicy: Qt.StrongFocus
                Accessible.name: qsTr("Copy diagnostic report")
                Accessible.description: qsTr("Puts Omnira's version, settings and recent log on the clipboard")
                onClicked: omnira.copyDiagnosticReport()
                Timer { id: copiedShown; interval: 2500; onTriggered: reportButton.copied = false }
                Connections {
                    target: omnira
                    function onDiagnosticReportCopied() {
                        reportButton.copied = true
                        copiedShown.restart()
                    }
                }
            }
        }

        StackLayout {
            Layout.fillWidth: true
            Layout.fillHeight: true
            currentIndex: window.pageIndex
            Repeater {
                model: window.pages
                delegate: Loader {
                    // Loaded when first shown and kept, so a page keeps its scroll and sort
                    // between visits.
                    readonly property bool current: index === window.pageIndex
                    active: false
                    onCurrentChanged: if (current) active = true
                    Component.onCompleted: if (current) active = true
                    source: modelData.source
                }
            }
        }
    }
}
