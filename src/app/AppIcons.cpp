#include "app/AppIcons.h"

#include "app/AppStyle.h"

#include <QFile>
#include <QIconEngine>
#include <QPainter>
#include <QSvgRenderer>

namespace {
// Draws an SVG at whatever size and pixel ratio Qt asks for, so icons stay sharp at scale 2.
class SvgIconEngine final : public QIconEngine {
public:
    explicit SvgIconEngine(QByteArray svg) : m_svg(std::move(svg)) {}
    void paint(QPainter* painter, const QRect& rect, QIcon::Mode mode, QIcon::State) override {
        QSvgRenderer renderer(m_svg);
        if (mode == QIcon::Disabled)
            painter->setOpacity(0.4);
        renderer.render(painter, rect);
    }
    QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override {
        QPixmap pixmap(size);
        pixmap.fill(Qt::transparent);
        QPainter painter(&pixmap);
        paint(&painter, QRect(QPoint(), size), mode, state);
        return pixmap;
    }
    QIconEngine* clone() const override { return new SvgIconEngine(m_svg); }

private:
    QByteArray m_svg;
};

QByteArray readResource(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}
} // namespace

namespace AppIcons {

QIcon icon(const QString& name, const QColor& color) {
    QByteArray svg = readResource(QStringLiteral(":/icons/ui/%1.svg").arg(name));
    svg.replace("currentColor", color.name().toLatin1());
    return QIcon(new SvgIconEngine(std::move(svg)));
}

QIcon applicationIcon() {
    return QIcon(
        new SvgIconEngine(readResource(QStringLiteral(":/icons/com.tavelquiston.app.svg"))));
}

QIcon recordingIcon(bool paused) {
    const QColor dot = paused ? AppStyle::secondaryText : AppStyle::recording;
    const QByteArray svg =
        QByteArrayLiteral("<svg xmlns='http://www.w3.org/2000/svg' viewBox='0 0 20 20'>"
                          "<circle cx='10' cy='10' r='7' fill='") +
        dot.name().toLatin1() + QByteArrayLiteral("'/></svg>");
    return QIcon(new SvgIconEngine(svg));
}

} // namespace AppIcons
