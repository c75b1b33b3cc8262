import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// Every setting, in four sections, built from the settings model's rows. A change is
// written at once, as `omnira settings set` writes it; a refused one says why beside it.
FocusScope {
    id: page
    objectName: "settingsPage"
    readonly property var settings: omnira.settings
    readonly property var titles: ({ general: qsTr("General"), insights: qsTr("Insights"),
                                     integrations: qsTr("Integrations"), usage: qsTr("Usage limits") })
    readonly property string section: settings.sections.indexOf(omnira.section) >= 0 ? omnira.section : "general"
    // A heading above the first key of each group.
    readonly property var headings: ({
        refreshSeconds: qsTr("Sampling and history"), temperatureUnit: qsTr("Display"),
        menuBarReadout: qsTr("Status icon"), insightNotifications: qsTr("Notifications"),
        insightCPUPercent: qsTr("Thresholds"), insightAppLimits: qsTr("Apps"), bridgeEnabled: qsTr("Agents' bridge"),
        metricsEnabled: qsTr("Metrics endpoint"), usageLimitsEnabled: qsTr("Usage limits"),
        usageLimitsClaude: qsTr("AI tools asked")
    })
    SystemPalette { id: sys }
    readonly property bool dark: sys.window.hslLightness < 0.5

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: 24
        anchors.topMargin: 20
        spacing: 12

        Text {
            text: qsTr("Settings")
            font.pointSize: Qt.application.font.pointSize + 8
            font.weight: Font.Bold
            color: sys.windowText
            Accessible.role: Accessible.Heading
        }

        TabBar {
            id: tabs
            Layout.fillWidth: true
            currentIndex: page.settings.sections.indexOf(page.section)
            // A click sets the index itself; the section follows it, and an open() moves it.
            onCurrentIndexChanged: if (currentIndex >= 0) omnira.section = page.settings.sections[currentIndex]
            Connections {
                target: omnira
                function onSectionChanged() { tabs.currentIndex = page.settings.sections.indexOf(page.section) }
            }
            focus: true
            Repeater {
                model: page.settings.sections
                delegate: TabButton {
                    text: page.titles[modelData]
                    width: implicitWidth + 24
                    Accessible.name: text
                }
            }
        }

        ScrollView {
            id: scroll
            Layout.fillWidth: true
            Layout.fillHeight: true
            contentWidth: availableWidth
            clip: true

            Column {
                width: scroll.availableWidth
                spacing: 16

                // How the bridge stands, above its switches.
                Card {
                    visible: page.section === "integrations"
                    width: parent.width
                    title: qsTr("Bridge state")
                    Column {
                        width: parent.width
                        spacing: 6
                        Row {
                            spacing: 8
                            Rectangle {
                                width: 10; height: 10; radius: 5
                                anchors.verticalCenter: parent.verticalCenter
                                color: page.settings.bridgeListening ? "#22c55e" : Qt.rgba(sys.windowText.r, sys.windowText.g, sys.windowText.b, 0.35)
                            }
                            Text {
                                width: Math.min(implicitWidth, scroll.availableWidth - 60)
                                text: page.settings.bridgeStatus
                                textFormat: Text.PlainText
                                color: sys.windowText
                                wrapMode: Text.WrapAnywhere
                            }
                        }
                        TextEdit {
                            width: parent.width
                            readOnly: true
                            selectByMouse: true
                            text: qsTr("Socket: %1").arg(page.settings.bridgeSocket)
                            textFormat: TextEdit.PlainText
                            color: sys.windowText
                            opacity: 0.7
                            wrapMode: TextEdit.WrapAnywhere
                            Accessible.name: text
                        }
                    }
                }

                Card {
                    width: parent.width
                    Column {
                        width: parent.width
                        spacing: 14
                        Repeater {
                            model: page.settings
                            delegate: SettingRow {
                                entry: model
                                width: parent.width
                                visible: model.section === page.section
                                heading: page.headings[model.key] || ""
                            }
                        }
                    }
                }

                TextEdit {
                    visible: page.section === "general"
                    width: parent.width
                    readOnly: true
                    selectByMouse: true
                    text: qsTr("Kept in %1; `omnira settings` lists and changes the same keys.").arg(page.settings.settingsFile)
                    textFormat: TextEdit.PlainText
                    color: sys.windowText
                    opacity: 0.65
                    wrapMode: TextEdit.Wrap
                }
                Item { width: 1; height: 4 }
            }
        }
    }
}
