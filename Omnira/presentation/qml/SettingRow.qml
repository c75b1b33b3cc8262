import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// One key of the settings model: its title and description on the left, the control its
// kind asks for on the right (lists below, full width), and under it why a change was
// refused. Controls write at once and then take the model's value again, so an edit of
// the file elsewhere shows here.
Column {
    id: row
    property var entry          // the model's row: key, kind, value, text, choices, refusal, …
    property string heading: ""
    readonly property var settings: omnira.settings
    readonly property bool wide: ["appLimits", "mutedApps", "folders", "json"].indexOf(entry.kind) >= 0
    spacing: 6
    SystemPalette { id: sys }
    readonly property bool dark: sys.window.hslLightness < 0.5
    readonly property color refusalColor: dark ? "#fca5a5" : "#b91c1c"

    function apply(value) { return settings.set(entry.key, value) }
    function applyText(text) { return settings.setText(entry.key, text) }

    Text {
        visible: row.heading.length > 0
        topPadding: 6
        text: row.heading
        font.pointSize: Qt.application.font.pointSize + 1
        font.weight: Font.DemiBold
        color: sys.windowText
        Accessible.role: Accessible.Heading
    }

    // Explicit geometry, not a layout: the texts take what the control leaves them.
    Item {
        id: line
        width: row.width
        height: Math.max(texts.height, controls.height)
        Column {
            id: texts
            width: Math.max(120, line.width - controls.width - 16)
            anchors.verticalCenter: parent.verticalCenter
            spacing: 2
            Text {
                width: parent.width
                text: row.entry.title
                color: sys.windowText
                wrapMode: Text.Wrap
            }
            Text {
                width: parent.width
                text: row.entry.description + "  ·  " + row.entry.key
                color: sys.windowText
                opacity: 0.62
                font.pointSize: Qt.application.font.pointSize - 1
                wrapMode: Text.Wrap
            }
        }
        Row {
            id: controls
            anchors.right: parent.right
            anchors.verticalCenter: parent.verticalCenter
            spacing: 8
            ToolButton {
                visible: !row.entry.isDefault
                anchors.verticalCenter: parent.verticalCenter
                text: "↺"
                font.pointSize: Qt.application.font.pointSize + 2
                focusPolicy: Qt.StrongFocus
                ToolTip.visible: hovered || visualFocus
                ToolTip.text: qsTr("Back to the default")
                Accessible.name: qsTr("Reset %1 to the default").arg(row.entry.title)
                onClicked: row.settings.reset(row.entry.key)
            }
            Loader {
                anchors.verticalCenter: parent.verticalCenter
                active: !row.wide
                sourceComponent: {
                    switch (row.entry.kind) {
                    case "switch": return switchControl
                    case "slider": return sliderControl
                    case "choice": return choiceControl
                    case "secret": return secretControl
                    case "text": return textControl
                    default: return numberControl
                    }
                }
            }
        }
    }

    Loader {
        width: row.width
        active: row.wide
        sourceComponent: {
            switch (row.entry.kind) {
            case "appLimits": return appLimitsEditor
            case "mutedApps": return mutedAppsEditor
            case "folders": return foldersEditor
            default: return jsonEditor
            }
        }
    }

    Text {
        visible: text.length > 0
        width: row.width
        text: row.entry.refusal
        textFormat: Text.PlainText
        color: row.refusalColor
        wrapMode: Text.Wrap
        horizontalAlignment: row.wide ? Text.AlignLeft : Text.AlignRight
        Accessible.role: Accessible.AlertMessage
        Accessible.name: text
    }
    Text {
        visible: text.length > 0
        width: row.width
        text: row.entry.note
        textFormat: Text.PlainText
        color: sys.windowText
        opacity: 0.7
        wrapMode: Text.Wrap
    }

    Component {
        id: switchControl
        Switch {
            checked: row.entry.value === true
            Accessible.name: row.entry.title
            onToggled: {
                row.apply(checked)
                checked = Qt.binding(() => row.entry.value === true)
            }
        }
    }

    Component {
        id: sliderControl
        Row {
            spacing: 8
            Slider {
                id: slider
                width: 200
                from: row.entry.minimum
                to: row.entry.maximum
                stepSize: 0.5
                snapMode: Slider.SnapAlways
                value: Number(row.entry.value)
                Accessible.name: row.entry.title
                function commit() {
                    row.apply(value)
                    value = Qt.binding(() => Number(row.entry.value))
                }
                onPressedChanged: if (!pressed) commit()
                onMoved: if (!pressed) commit()  // arrow keys
            }
            Text {
                width: 40
                anchors.verticalCenter: parent.verticalCenter
                text: String(Math.round(slider.value * 10) / 10)
                color: sys.windowText
                horizontalAlignment: Text.AlignRight
            }
        }
    }

    Component {
        id: choiceControl
        ComboBox {
            implicitWidth: 200
            model: row.entry.choices
            textRole: "label"
            currentIndex: {
                const choices = row.entry.choices
                for (let i = 0; i < choices.length; ++i)
                    if (choices[i].value === row.entry.value) return i
                return -1
            }
            Accessible.name: row.entry.title
            onActivated: index => row.apply(row.entry.choices[index].value)
        }
    }

    Component {
        id: numberControl
        TextField {
            implicitWidth: 120
            text: row.entry.text
            placeholderText: row.entry.accepts
            horizontalAlignment: TextInput.AlignRight
            selectByMouse: true
            Accessible.name: row.entry.title
            Accessible.description: row.entry.accepts
            ToolTip.visible: activeFocus
            ToolTip.text: qsTr("Takes %1; Enter applies it.").arg(row.entry.accepts)
            function commit() {
                if (text === row.entry.text) return
                if (row.applyText(text) === "") text = Qt.binding(() => row.entry.text)
            }
            onAccepted: commit()
            onEditingFinished: commit()
            Keys.onEscapePressed: text = Qt.binding(() => row.entry.text)
        }
    }

    Component {
        id: textControl
        TextField {
            implicitWidth: 240
            text: row.entry.text
            selectByMouse: true
            Accessible.name: row.entry.title
            function commit() {
                if (text === row.entry.text) return
                if (row.applyText(text) === "") text = Qt.binding(() => row.entry.text)
            }
            onAccepted: commit()
            onEditingFinished: commit()
            Keys.onEscapePressed: text = Qt.binding(() => row.entry.text)
        }
    }

    Component {
        id: secretControl
        Row {
            spacing: 6
            TextField {
                id: secret
                width: 240
                text: row.entry.text
                echoMode: shown.checked ? TextInput.Normal : TextInput.Password
                placeholderText: qsTr("none")
                selectByMouse: true
                Accessible.name: row.entry.title
                function commit() {
                    if (text === row.entry.text) return
                    if (row.applyText(text) === "") text = Qt.binding(() => row.entry.text)
                }
                onAccepted: commit()
                onEditingFinished: commit()
            }
            Button {
                id: shown
                checkable: true
                text: checked ? qsTr("Hide") : qsTr("Show")
                Accessible.name: checked ? qsTr("Hide the token") : qsTr("Show the token")
            }
        }
    }

    // A small list's frame: its rows, then a line to add one.
    // Inline components see no id of this file: each takes its own palette.
    component ListFrame: Rectangle {
        default property alias content: inner.data
        implicitHeight: inner.implicitHeight + 16
        radius: 8
        SystemPalette { id: framePalette }
        color: Qt.rgba(framePalette.windowText.r, framePalette.windowText.g, framePalette.windowText.b, 0.04)
        border.color: Qt.rgba(framePalette.windowText.r, framePalette.windowText.g, framePalette.windowText.b, 0.1)
        Column {
            id: inner
            x: 8; y: 8
            width: parent.width - 16
            spacing: 6
        }
    }
    component Empty: Text {
        SystemPalette { id: emptyPalette }
        color: emptyPalette.windowText
        opacity: 0.6
    }

    Component {
        id: appLimitsEditor
        ListFrame {
            Empty { visible: row.entry.value.length === 0; text: qsTr("No app has a limit of its own.") }
            Repeater {
                model: row.entry.value
                delegate: RowLayout {
                    width: parent.width
                    Switch {
                        checked: modelData.isOn
                        Accessible.name: qsTr("Limit for %1").arg(modelData.appName)
                        onToggled: row.settings.setAppLimitOn(index, checked)
                    }
                    Text {
                        Layout.fillWidth: true
                        text: qsTr("%1: over %2 for %3 min").arg(modelData.appName).arg(modelData.limitText).arg(modelData.minutes)
                        textFormat: Text.PlainText
                        color: sys.windowText
                        elide: Text.ElideRight
                    }
                    Button {
                        text: qsTr("Remove")
                        Accessible.name: qsTr("Remove the limit for %1").arg(modelData.appName)
                        onClicked: row.settings.removeAppLimit(index)
                    }
                }
            }
            RowLayout {
                width: parent.width
                spacing: 6
                AppPicker { id: limitApp; Layout.fillWidth: true; Layout.minimumWidth: 160 }
                ComboBox {
                    id: figure
                    implicitWidth: 120
                    model: [{ value: "cpu", label: qsTr("CPU %") }, { value: "memory", label: qsTr("Memory GB") }]
                    textRole: "label"
                    Accessible.name: qsTr("Figure of the limit")
                }
                TextField { id: limitValue; implicitWidth: 80; placeholderText: qsTr("limit"); Accessible.name: qsTr("Limit") }
                TextField { id: limitMinutes; implicitWidth: 80; placeholderText: qsTr("minutes"); Accessible.name: qsTr("Minutes over the limit") }
                Button {
                    text: qsTr("Add limit")
                    onClicked: {
                        if (row.settings.addAppLimit(limitApp.app(), figure.model[figure.currentIndex].value,
                                                     Number(limitValue.text || NaN), Number(limitMinutes.text || NaN)) === "") {
                            limitValue.text = ""
                            limitMinutes.text = ""
                        }
                    }
                }
            }
        }
    }

    Component {
        id: mutedAppsEditor
        ListFrame {
            Empty { visible: row.entry.value.length === 0; text: qsTr("No app is muted.") }
            Repeater {
                model: row.entry.value
                delegate: RowLayout {
                    width: parent.width
                    Text {
                        Layout.fillWidth: true
                        text: modelData.app + "  ·  " + modelData.until
                        textFormat: Text.PlainText
                        color: sys.windowText
                        elide: Text.ElideMiddle
                    }
                    Button {
                        text: qsTr("Unmute")
                        Accessible.name: qsTr("Unmute %1").arg(modelData.app)
                        onClicked: row.settings.unmuteApp(modelData.app)
                    }
                }
            }
            RowLayout {
                width: parent.width
                spacing: 6
                AppPicker { id: muteApp; Layout.fillWidth: true; Layout.minimumWidth: 160 }
                ComboBox {
                    id: muteFor
                    implicitWidth: 140
                    model: [{ days: 0, label: qsTr("for good") }, { days: 1, label: qsTr("for a day") },
                            { days: 7, label: qsTr("for a week") }]
                    textRole: "label"
                    Accessible.name: qsTr("How long to mute")
                }
                Button {
                    text: qsTr("Mute")
                    onClicked: row.settings.muteApp(muteApp.app(), muteFor.model[muteFor.currentIndex].days)
                }
            }
        }
    }

    Component {
        id: foldersEditor
        ListFrame {
            Empty { visible: row.entry.value.length === 0; text: qsTr("No folder yet.") }
            Repeater {
                model: row.entry.value
                delegate: RowLayout {
                    width: parent.width
                    Text {
                        Layout.fillWidth: true
                        text: modelData
                        textFormat: Text.PlainText
                        color: sys.windowText
                        elide: Text.ElideMiddle
                    }
                    Button {
                        text: qsTr("Remove")
                        Accessible.name: qsTr("Remove %1").arg(modelData)
                        onClicked: row.settings.removeFolder(row.entry.key, index)
                    }
                }
            }
            RowLayout {
                width: parent.width
                TextField {
                    id: folder
                    Layout.fillWidth: true
                    placeholderText: qsTr("/home/you/src/project")
                    Accessible.name: qsTr("Folder to add")
                    onAccepted: addFolder.clicked()
                }
                Button {
                    id: addFolder
                    text: qsTr("Add folder")
                    onClicked: if (row.settings.addFolder(row.entry.key, folder.text) === "") folder.text = ""
                }
            }
        }
    }

    Component {
        id: jsonEditor
        RowLayout {
            TextArea {
                id: raw
                Layout.fillWidth: true
                text: row.entry.text
                wrapMode: TextEdit.WrapAnywhere
                font.family: "monospace"
                Accessible.name: row.entry.title
            }
            Button {
                text: qsTr("Apply")
                onClicked: if (row.applyText(raw.text) === "") raw.text = Qt.binding(() => row.entry.text)
            }
        }
    }

    // An app by its id, picked from those running or typed.
    component AppPicker: ComboBox {
        editable: true
        model: omnira.settings.runningApps()
        textRole: "name"
        Accessible.name: qsTr("App")
        onPressedChanged: if (pressed) model = omnira.settings.runningApps()
        function app() {
            const apps = model
            if (currentIndex >= 0 && currentIndex < apps.length && apps[currentIndex].name === editText)
                return apps[currentIndex].id
            return editText
        }
    }
}
