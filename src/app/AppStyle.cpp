#include "app/AppStyle.h"

#include <QPainter>
#include <QPainterPath>
#include <QWidget>

namespace AppStyle {

QString styleSheet() {
    return QStringLiteral(R"(
* { color: #ecedf0; font-size: 13px; }
QWidget#card, QDialog, QWidget[surface="true"] { background: transparent; }
QLabel[role="secondary"] { color: #9a9ca5; font-size: 11px; }
QLabel[role="title"] { font-size: 15px; font-weight: 600; }
QPushButton, QToolButton {
  background: #26272d; border: 1px solid #34353c; border-radius: 6px;
  padding: 6px 12px; min-height: 20px;
}
QPushButton:hover, QToolButton:hover { background: #2e2f36; }
QPushButton:pressed, QToolButton:pressed { background: #34353c; }
QPushButton:disabled { color: #5c5e66; }
QPushButton[role="primary"] { background: #5b8cff; border-color: #5b8cff; color: white; }
QPushButton[role="danger"] { background: #ff4d5e; border-color: #ff4d5e; color: white; }
QPushButton[role="danger"]:hover { background: #ff6170; }
QPushButton[role="ghost"] { background: transparent; border-color: transparent; color: #9a9ca5; }
QPushButton[role="ghost"]:hover { color: #ecedf0; background: #26272d; }
QToolButton[role="tile"] {
  background: #26272d; border: 1px solid #34353c; border-radius: 10px;
  padding: 8px; font-size: 11px; color: #9a9ca5;
}
QToolButton[role="tile"]:checked { border: 1px solid #5b8cff; color: #ecedf0; background: #2a3350; }
QToolButton[role="chip"] { border-radius: 14px; padding: 4px 12px; color: #9a9ca5; }
QToolButton[role="chip"]:checked { background: #2a3350; border-color: #5b8cff; color: #ecedf0; }
QToolButton::menu-indicator { image: none; width: 0; }
QToolButton[role="chip"][popupMode="1"] { padding-right: 24px; }
QToolButton::menu-button { border: none; border-left: 1px solid #34353c; width: 18px;
  background: transparent; border-top-right-radius: 14px; border-bottom-right-radius: 14px; }
QToolButton::menu-arrow { image: url(:/icons/ui/chevron-down.svg); width: 12px; height: 12px; }
QComboBox, QSpinBox, QDoubleSpinBox, QLineEdit {
  background: #26272d; border: 1px solid #34353c; border-radius: 6px; padding: 4px 8px;
  min-height: 20px; selection-background-color: #5b8cff;
}
QComboBox QAbstractItemView { background: #26272d; border: 1px solid #34353c; }
QCheckBox::indicator { width: 16px; height: 16px; border-radius: 4px; border: 1px solid #34353c;
  background: #26272d; }
QCheckBox::indicator:checked { background: #5b8cff; border-color: #5b8cff; }
QListWidget { background: #1c1d21; border: 1px solid #34353c; border-radius: 6px; padding: 4px; }
QListWidget::item { border-radius: 6px; padding: 6px; }
QListWidget::item:selected { background: #2a3350; color: #ecedf0; }
QScrollArea { background: transparent; border: none; }
QScrollBar:vertical { background: transparent; width: 8px; }
QScrollBar::handle:vertical { background: #34353c; border-radius: 4px; min-height: 24px; }
QScrollBar::add-line, QScrollBar::sub-line { height: 0; }
QMenu { background: #26272d; border: 1px solid #34353c; border-radius: 6px; padding: 4px; }
QMenu::item { padding: 6px 16px; border-radius: 4px; }
QMenu::item:selected { background: #5b8cff; color: white; }
QTabWidget::pane { border: none; }
QTabBar::tab { background: transparent; color: #9a9ca5; padding: 6px 12px; }
QTabBar::tab:selected { color: #ecedf0; border-bottom: 2px solid #5b8cff; }
QToolTip { background: #26272d; color: #ecedf0; border: 1px solid #34353c; }
)");
}

void paintCard(QWidget& widget, int radius) {
    QPainter painter(&widget);
    painter.setRenderHint(QPainter::Antialiasing);
    QPainterPath path;
    path.addRoundedRect(QRectF(widget.rect()).adjusted(0.5, 0.5, -0.5, -0.5), radius, radius);
    painter.fillPath(path, background);
    painter.setPen(QPen(hairline, 1.0));
    painter.drawPath(path);
}

} // namespace AppStyle
