#include "app/trimmer/TrimmerStyle.h"

QString trimmer::styleSheet() {
    return QStringLiteral(R"(
QWidget#TrimmerWindow { background: #1c1d21; color: #ecedf0; font-size: 13px; }
QLabel { color: #ecedf0; }
QLabel[secondary="true"] { color: #9a9ca5; font-size: 11px; }
QPushButton, QToolButton {
  background: #26272d; color: #ecedf0; border: 1px solid #34353c; border-radius: 6px;
  padding: 4px 12px; min-height: 20px;
}
QPushButton:hover, QToolButton:hover { border-color: #5b8cff; }
QPushButton:checked, QToolButton:checked { background: #2f3b5c; border-color: #5b8cff; }
QPushButton:disabled, QToolButton:disabled { color: #9a9ca5; }
QPushButton#primary { background: #5b8cff; border-color: #5b8cff; color: white; font-weight: 600; }
QPushButton#destructive { color: #ff4d5e; }
QSlider::groove:horizontal { height: 4px; background: #34353c; border-radius: 2px; }
QSlider::sub-page:horizontal { background: #5b8cff; border-radius: 2px; }
QSlider::handle:horizontal {
  background: #ecedf0; width: 12px; height: 12px; margin: -4px 0; border-radius: 6px;
}
QProgressBar {
  background: #26272d; border: 1px solid #34353c; border-radius: 6px; height: 12px;
  color: #ecedf0; text-align: center; font-size: 11px;
}
QProgressBar::chunk { background: #5b8cff; border-radius: 5px; }
QWidget#inspector { background: #222328; border-left: 1px solid #34353c; }
QWidget#inspectorPage, QScrollArea, QScrollArea > QWidget > QWidget { background: #222328; }
QTabWidget::pane { border: none; border-top: 1px solid #34353c; }
QTabBar { qproperty-drawBase: 0; }
QTabBar::tab {
  background: transparent; color: #9a9ca5; border: none; padding: 10px 4px 8px 4px;
  font-size: 12px; border-bottom: 2px solid transparent;
}
QTabBar::tab:hover { color: #ecedf0; }
QTabBar::tab:selected { color: #ecedf0; border-bottom: 2px solid #5b8cff; }
QLabel[heading="true"] { color: #9a9ca5; font-size: 11px; font-weight: 600; }
QCheckBox { color: #ecedf0; spacing: 8px; }
QCheckBox:disabled, QLabel:disabled { color: #5d5f66; }
QCheckBox::indicator {
  width: 14px; height: 14px; border: 1px solid #34353c; border-radius: 4px; background: #26272d;
}
QCheckBox::indicator:checked { background: #5b8cff; border-color: #5b8cff; }
QPushButton#segment { border-radius: 0; padding: 4px 6px; font-size: 12px; }
QPushButton#segment[position="first"] {
  border-top-left-radius: 6px; border-bottom-left-radius: 6px;
}
QPushButton#segment[position="last"] {
  border-top-right-radius: 6px; border-bottom-right-radius: 6px;
}
QScrollBar:vertical { background: transparent; width: 8px; }
QScrollBar::handle:vertical { background: #34353c; border-radius: 4px; min-height: 24px; }
QScrollBar::add-line, QScrollBar::sub-line { height: 0; }
)");
}
