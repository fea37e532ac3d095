#include "presentation/PreviewPanel.h"

#include "coordination/MainViewModel.h"
#include "coordination/OutputViewModel.h"
#include "presentation/OutputOverlay.h"
#include "presentation/OutputStage.h"
#include "presentation/PopoverHub.h"
#include "presentation/PreviewChips.h"
#include "presentation/SymbolIcon.h"
#include "presentation/VideoLayerWidget.h"

#include <QAbstractButton>
#include <QHBoxLayout>
#include <QLabel>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>

using namespace Qt::StringLiterals;

namespace vistrel {

namespace {

constexpr int inset = 8;
constexpr int previewFrameRate = 20;
const QColor indigo(0x5e, 0x5c, 0xe6);
const QColor green(0x2e, 0xc2, 0x7e);
const QColor red(0xe0, 0x1b, 0x24);
const QColor blue(0x35, 0x84, 0xe4);

QColor withAlpha(QColor colour, float alpha)
{
    colour.setAlphaF(alpha);
    return colour;
}

QFont smallFont(const QFont& base, int pixelSize, QFont::Weight weight)
{
    QFont font = base;
    font.setPixelSize(pixelSize);
    font.setWeight(weight);
    return font;
}

// A capsule with a faint shadow under it.
void paintCapsule(QPainter& painter, const QRectF& shape, const QColor& fill, const QPen& border)
{
    const qreal radius = shape.height() / 2;
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor::fromRgbF(0, 0, 0, 0.3f));
    painter.drawRoundedRect(shape.translated(0, 1), radius, radius);
    painter.setBrush(fill);
    painter.setPen(border);
    painter.drawRoundedRect(shape, radius, radius);
}

class PreviewBadge : public QWidget {
public:
    explicit PreviewBadge(QWidget* parent) : QWidget(parent)
    {
        setAttribute(Qt::WA_TransparentForMouseEvents);
        setFont(smallFont(font(), 9, QFont::Bold));
        const QSize text = fontMetrics().size(0, u"PREVIEW"_s);
        setFixedSize(text.width() + 12, text.height() + 6);
    }

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        paintCapsule(painter, QRectF(rect()).adjusted(0, 0, 0, -1), withAlpha(blue, 0.7f),
                     Qt::NoPen);
        painter.setPen(Qt::white);
        painter.drawText(rect().adjusted(0, 0, 0, -1), Qt::AlignCenter, u"PREVIEW"_s);
    }
};

class PreviewChipButton : public QAbstractButton {
public:
    PreviewChipButton(const PreviewChip& chip, QWidget* parent)
        : QAbstractButton(parent), m_isActive(chip.isActive)
    {
        setText(chip.title);
        setToolTip(chip.title);
        setFocusPolicy(Qt::NoFocus);
        setCursor(Qt::PointingHandCursor);
        setFont(smallFont(font(), 9, m_isActive ? QFont::Black : QFont::DemiBold));
        const QSize text = fontMetrics().size(0, chip.title);
        setFixedSize(text.width() + 16, text.height() + 8 + 1);
    }

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        const QRectF shape = QRectF(rect()).adjusted(1, 1, -1, -2);
        if (m_isActive)
            paintCapsule(painter, shape, withAlpha(indigo, 0.9f), QPen(indigo, 1.5));
        else
            paintCapsule(painter, shape, QColor::fromRgbF(0, 0, 0, 0.6f),
                         QPen(QColor::fromRgbF(1, 1, 1, 0.2f), 1));
        painter.setPen(m_isActive ? QColor(Qt::white) : QColor::fromRgbF(1, 1, 1, 0.8f));
        painter.drawText(shape, Qt::AlignCenter, text());
    }

private:
    bool m_isActive;
};

} // namespace

// The round camera switch: green while the bubble is on, red and crossed
// out while it is off.
class PreviewCameraButton : public QAbstractButton {
public:
    explicit PreviewCameraButton(QWidget* parent) : QAbstractButton(parent)
    {
        setFixedSize(28, 28);
        setFocusPolicy(Qt::NoFocus);
        setCursor(Qt::PointingHandCursor);
    }

    void setOn(bool on)
    {
        m_isOn = on;
        setToolTip(on ? tr("Turn the camera bubble off") : tr("Turn the camera bubble on"));
        update();
    }

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        const QRectF circle(1, 0, 26, 26);
        painter.setPen(Qt::NoPen);
        painter.setBrush(QColor::fromRgbF(0, 0, 0, 0.3f));
        painter.drawEllipse(circle.translated(0, 1));
        painter.setBrush(withAlpha(m_isOn ? green : red, 0.85f));
        painter.setPen(QPen(QColor::fromRgbF(1, 1, 1, 0.2f), 1));
        painter.drawEllipse(circle);
        const QImage symbol = symbolImage(u"camera.fill"_s, 12, Qt::white, devicePixelRatioF());
        painter.drawImage(QPointF(circle.center().x() - 6, circle.center().y() - 6), symbol);
        if (!m_isOn) {
            painter.setPen(QPen(Qt::white, 1.5, Qt::SolidLine, Qt::RoundCap));
            const QPointF c = circle.center();
            painter.drawLine(c + QPointF(-5.66, 5.66), c + QPointF(5.66, -5.66));
        }
    }

private:
    bool m_isOn = false;
};

PreviewPanel::PreviewPanel(OutputViewModel& outputViewModel, MainViewModel& mainViewModel,
                           PopoverHub& hub, QWidget* controlWindow)
    // A tool window of the control window: the window manager keeps it in
    // the control window's layer, above it, whether or not that is on top.
    : QWidget(controlWindow, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowDoesNotAcceptFocus),
      m_mainViewModel(mainViewModel), m_hub(hub), m_controlWindow(controlWindow),
      m_stage(new OutputStage(outputViewModel, this)),
      m_notice(new OutputOverlay(outputViewModel, OutputOverlay::Style::compact, this)),
      m_badge(new PreviewBadge(this)), m_cameraButton(new PreviewCameraButton(this)),
      m_chipRow(new QWidget(this)), m_chipLayout(new QHBoxLayout(m_chipRow))
{
    setWindowTitle(u"Vistrel Preview"_s);
    setAttribute(Qt::WA_ShowWithoutActivating);
    setAttribute(Qt::WA_OpaquePaintEvent);
    setAttribute(Qt::WA_NoSystemBackground);
    setFocusPolicy(Qt::NoFocus);
    resize(520, 293);
    // A glance, not the shared picture: a third of a 60 fps stream is
    // plenty, and keeps the preview's share of a frame small.
    m_stage->videoWidget()->setMaximumFrameRate(previewFrameRate);
    m_chipLayout->setContentsMargins(0, 0, 0, 0);
    m_chipLayout->setSpacing(6);

    connect(m_stage, &OutputStage::presentationSynced, m_notice, qOverload<>(&QWidget::update));
    connect(m_cameraButton, &QAbstractButton::clicked, this, [this] {
        CameraOverlayConfiguration camera = m_mainViewModel.cameraOverlay();
        camera.isEnabled = !camera.isEnabled;
        m_mainViewModel.setCameraOverlay(camera);
    });
    connect(&mainViewModel, &MainViewModel::cameraOverlayChanged, this,
            [this](const CameraOverlayConfiguration& camera) {
                m_cameraButton->setOn(camera.isEnabled);
            });
    m_cameraButton->setOn(mainViewModel.cameraOverlay().isEnabled);
    PresetModel* presets = mainViewModel.presetModel();
    connect(presets, &PresetModel::presetsChanged, this, &PreviewPanel::syncChips);
    connect(presets, &PresetModel::activePresetIDChanged, this, &PreviewPanel::syncChips);
    syncChips();
}

QAbstractButton* PreviewPanel::cameraButton() const
{
    return m_cameraButton;
}

QList<QAbstractButton*> PreviewPanel::chips() const
{
    return m_chipRow->findChildren<QAbstractButton*>(Qt::FindDirectChildrenOnly);
}

void PreviewPanel::syncChips()
{
    for (QAbstractButton* chip : chips())
        delete chip;
    PresetModel* presets = m_mainViewModel.presetModel();
    for (const PreviewChip& chip : previewChips(presets->presets(), presets->activePresetID())) {
        auto* button = new PreviewChipButton(chip, m_chipRow);
        const QString id = chip.presetID;
        connect(button, &QAbstractButton::clicked, this,
                [this, id] { m_mainViewModel.applyPreset(id); });
        m_chipLayout->addWidget(button);
    }
    layoutChildren();
}

void PreviewPanel::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    layoutChildren();
}

void PreviewPanel::layoutChildren()
{
    m_stage->setGeometry(rect());
    m_notice->setGeometry(rect());
    m_badge->move(inset, inset);
    m_cameraButton->move(width() - inset - m_cameraButton->width(),
                         height() - inset - m_cameraButton->height());
    m_chipRow->adjustSize();
    m_chipRow->move(inset, height() - inset - m_chipRow->height());
    m_badge->raise();
    m_chipRow->raise();
    m_cameraButton->raise();
    m_stage->setOverdrawn(QRegion(m_badge->geometry()) + m_cameraButton->geometry() +
                          m_chipRow->geometry());
}

void PreviewPanel::mousePressEvent(QMouseEvent* event)
{
    m_hub.requestClosePopovers();
    if (event->button() == Qt::LeftButton && m_controlWindow) {
        m_pressPosition = event->globalPosition().toPoint();
        m_controlOrigin = m_controlWindow->pos();
        event->accept();
        return;
    }
    QWidget::mousePressEvent(event);
}

void PreviewPanel::mouseMoveEvent(QMouseEvent* event)
{
    if (m_pressPosition && m_controlWindow && (event->buttons() & Qt::LeftButton)) {
        // The control window moves; the panel follows it.
        m_controlWindow->move(m_controlOrigin + event->globalPosition().toPoint() -
                              *m_pressPosition);
        event->accept();
        return;
    }
    QWidget::mouseMoveEvent(event);
}

void PreviewPanel::mouseReleaseEvent(QMouseEvent* event)
{
    m_pressPosition.reset();
    QWidget::mouseReleaseEvent(event);
}

} // namespace vistrel
