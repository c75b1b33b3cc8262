import QtQuick

// A coloured mark and what it stands for, with the figure.
Row {
    property color swatch
    property string label
    spacing: 6
    SystemPalette { id: sys }
    Rectangle { width: 10; height: 10; radius: 5; color: parent.swatch; anchors.verticalCenter: parent.verticalCenter }
    Text { text: parent.label; color: sys.windowText; opacity: 0.85 }
}
