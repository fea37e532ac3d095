#include "control/CameraPopover.h"

#include "control/CameraControls.h"
#include "control/DeckState.h"
#include "control/DeckText.h"
#include "coordination/CameraSessionManager.h"
#include "coordination/MainViewModel.h"
#include "presentation/SymbolIcon.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QComboBox>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QSignalBlocker>
#include <QSlider>
#include <QToolButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace vistrel {

namespace {

constexpr int textWidth = 340;
constexpr int marginLabelWidth = 44;
constexpr int marginValueWidth = 36;

QIcon tinted(const QString& symbol, const QWidget* widget)
{
    return QIcon(QPixmap::fromImage(symbolImage(
        symbol, 16, widget->palette().color(QPalette::WindowText), widget->devicePixelRatioF())));
}

struct MarginEdge {
    const char* title;
    const char* symbol;
    double CameraOverlayConfiguration::*field;
};

const MarginEdge marginEdges[] = {
    {QT_TRANSLATE_NOOP("ControlDeck", "Top"), "arrow.up", &CameraOverlayConfiguration::marginTop},
    {QT_TRANSLATE_NOOP("ControlDeck", "Bottom"), "arrow.down",
     &CameraOverlayConfiguration::marginBottom},
    {QT_TRANSLATE_NOOP("ControlDeck", "Left"), "arrow.left",
     &CameraOverlayConfiguration::marginLeft},
    {QT_TRANSLATE_NOOP("ControlDeck", "Right"), "arrow.right",
     &CameraOverlayConfiguration::marginRight},
};

QString shapeTitle(CameraShape shape)
{
    switch (shape) {
    case CameraShape::circle:
        return deckTr("Circle");
    case CameraShape::square:
        return deckTr("Square");
    case CameraShape::roundedSquare:
        return deckTr("Rounded");
    }
    return {};
}

} // namespace

CameraPopover::CameraPopover(MainViewModel& model, Camera camera, PopoverHub& hub, QWidget* parent)
    : Popover(deckTr("Camera Overlay"), hub, parent), m_model(model), m_camera(std::move(camera))
{
    QVBoxLayout* content = contentLayout();
    content->addWidget(
        secondaryText(deckTr("Overlay your camera feed on the screen sharing output. "
                             "Choose position, shape, and margins."),
                      this, textWidth));

    m_enable = new QCheckBox(deckTr("Enable Camera Overlay"), this);
    m_enable->setIcon(tinted(u"camera.fill"_s, this));
    connect(m_enable, &QCheckBox::toggled, this,
            [this](bool on) { change([on](CameraOverlayConfiguration& c) { c.isEnabled = on; }); });
    content->addWidget(m_enable);
    content->addWidget(m_deniedPanel = buildDeniedPanel());

    content->addWidget(sectionTitle(deckTr("Camera Source"), this));
    m_source = new QComboBox(this);
    connect(m_source, &QComboBox::activated, this, [this](int index) {
        const QVariant id = m_source->itemData(index);
        change([&id](CameraOverlayConfiguration& c) {
            c.cameraDeviceID = id.isNull() ? std::nullopt : std::optional(id.toString());
        });
    });
    content->addWidget(m_source);

    m_mirror = new QCheckBox(deckTr("Mirror Video"), this);
    connect(m_mirror, &QCheckBox::toggled, this, [this](bool on) {
        change([on](CameraOverlayConfiguration& c) { c.isMirrored = on; });
    });
    content->addWidget(m_mirror);

    auto* placement = new QHBoxLayout;
    auto* positionColumn = new QVBoxLayout;
    positionColumn->addWidget(sectionTitle(deckTr("Position"), this));
    positionColumn->addWidget(buildPositionGrid());
    positionColumn->addStretch();
    auto* shapeColumn = new QVBoxLayout;
    shapeColumn->addWidget(sectionTitle(deckTr("Shape"), this));
    shapeColumn->addWidget(buildShapePicker());
    m_sizeTitle = new QLabel(this);
    shapeColumn->addWidget(m_sizeTitle);
    m_size = new QSlider(Qt::Horizontal, this);
    m_size->setRange(5, 20);
    m_size->setPageStep(1);
    connect(m_size, &QSlider::valueChanged, this, [this](int value) {
        change(
            [value](CameraOverlayConfiguration& c) { c.sizeScale = sizeScaleFromSlider(value); });
    });
    shapeColumn->addWidget(m_size);
    shapeColumn->addStretch();
    placement->addLayout(positionColumn);
    placement->addSpacing(12);
    placement->addLayout(shapeColumn, 1);
    content->addLayout(placement);

    content->addWidget(sectionTitle(deckTr("Margins"), this));
    content->addWidget(m_marginPanel = buildMargins());
    m_noMargins = new QLabel(deckTr("Center position has no margins"), this);
    m_noMargins->setForegroundRole(QPalette::PlaceholderText);
    content->addWidget(m_noMargins);

    connect(&model, &MainViewModel::cameraOverlayChanged, this, &CameraPopover::sync);
    if (m_camera.session) {
        connect(m_camera.session, &CameraSessionManager::isAccessDeniedChanged, this,
                [this](bool denied) { setPermissionDenied(denied); });
    }
    sync();
    checkAccess();
}

QToolButton* CameraPopover::positionButton(CameraPosition position) const
{
    return qobject_cast<QToolButton*>(m_positions->button(int(position)));
}

QWidget* CameraPopover::buildDeniedPanel()
{
    auto* panel = new QFrame(this);
    panel->setObjectName(u"cameraDenied"_s);
    panel->setStyleSheet(u"#cameraDenied { border: 1px solid %1; border-radius: 8px; }"_s.arg(
        deckColor::orange.name()));
    auto* title = new QLabel(deckTr("Camera access denied"), panel);
    QFont bold = title->font();
    bold.setWeight(QFont::DemiBold);
    title->setFont(bold);
    auto* detail = new QLabel(deckTr("Grant Camera permission in System Settings."), panel);
    detail->setWordWrap(true);
    detail->setForegroundRole(QPalette::PlaceholderText);
    auto* settings = new QPushButton(deckTr("Settings"), panel);
    connect(settings, &QPushButton::clicked, this, [this] {
        if (m_camera.openAccessHelp)
            m_camera.openAccessHelp();
    });
    auto* text = new QVBoxLayout;
    text->addWidget(title);
    text->addWidget(detail);
    auto* layout = new QHBoxLayout(panel);
    layout->addLayout(text, 1);
    layout->addWidget(settings, 0, Qt::AlignVCenter);
    panel->hide();
    return panel;
}

QWidget* CameraPopover::buildPositionGrid()
{
    auto* grid = new QWidget(this);
    auto* layout = new QGridLayout(grid);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(4);
    m_positions = new QButtonGroup(this);
    for (int i = 0; i < int(allCameraPositions.size()); ++i) {
        const CameraPosition position = allCameraPositions.at(i);
        auto* button = new QToolButton(grid);
        button->setCheckable(true);
        button->setIcon(tinted(positionSymbol(position), this));
        button->setToolTip(title(position));
        button->setAccessibleName(title(position));
        button->setFixedSize(34, 28);
        m_positions->addButton(button, int(position));
        layout->addWidget(button, i / 3, i % 3);
    }
    connect(m_positions, &QButtonGroup::idClicked, this, [this](int id) {
        change([id](CameraOverlayConfiguration& c) { c.position = CameraPosition(id); });
    });
    return grid;
}

QWidget* CameraPopover::buildShapePicker()
{
    auto* picker = new QWidget(this);
    auto* layout = new QHBoxLayout(picker);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    m_shapes = new QButtonGroup(this);
    for (CameraShape shape : allCameraShapes) {
        auto* button = new QToolButton(picker);
        button->setText(shapeTitle(shape));
        button->setCheckable(true);
        button->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
        m_shapes->addButton(button, int(shape));
        layout->addWidget(button);
    }
    connect(m_shapes, &QButtonGroup::idClicked, this, [this](int id) {
        change([id](CameraOverlayConfiguration& c) { c.shape = CameraShape(id); });
    });
    return picker;
}

QWidget* CameraPopover::buildMargins()
{
    auto* panel = new QWidget(this);
    auto* layout = new QGridLayout(panel);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setVerticalSpacing(2);
    int row = 0;
    for (const MarginEdge& edge : marginEdges) {
        auto* symbol = new QLabel(panel);
        symbol->setPixmap(tinted(QString::fromLatin1(edge.symbol), this).pixmap(14, 14));
        auto* name = new QLabel(deckTr(edge.title), panel);
        name->setFixedWidth(marginLabelWidth);
        auto* slider = new QSlider(Qt::Horizontal, panel);
        slider->setRange(0, 120);
        slider->setAccessibleName(name->text());
        auto* value = new QLabel(panel);
        value->setFixedWidth(marginValueWidth);
        value->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
        const auto field = edge.field;
        connect(slider, &QSlider::valueChanged, this, [this, field](int v) {
            change([field, v](CameraOverlayConfiguration& c) { c.*field = v; });
        });
        layout->addWidget(symbol, row, 0);
        layout->addWidget(name, row, 1);
        layout->addWidget(slider, row, 2);
        layout->addWidget(value, row, 3);
        m_margins.append(slider);
        m_marginValues.append(value);
        ++row;
    }
    return panel;
}

void CameraPopover::checkAccess()
{
    if (!m_camera.port)
        return;
    QPointer<CameraPopover> self(this);
    m_camera.port->requestAccess([self](bool granted) {
        if (!self)
            return;
        const bool refused =
            !granted || (self->m_camera.session && self->m_camera.session->isAccessDenied());
        self->setPermissionDenied(refused);
        self->loadCameras();
    });
}

void CameraPopover::loadCameras()
{
    m_availableCameras = m_camera.port ? m_camera.port->devices() : QList<CameraDevice>{};
    const CameraOverlayConfiguration& overlay = m_model.cameraOverlay();
    if (const auto first = initialCameraID(m_availableCameras, overlay.cameraDeviceID)) {
        change([&first](CameraOverlayConfiguration& c) { c.cameraDeviceID = first; });
        return; // sync() ran for the change
    }
    sync();
}

void CameraPopover::setPermissionDenied(bool denied)
{
    m_cameraPermissionDenied = denied;
    m_deniedPanel->setVisible(denied);
    adjustSize();
}

void CameraPopover::change(const std::function<void(CameraOverlayConfiguration&)>& edit)
{
    CameraOverlayConfiguration next = m_model.cameraOverlay();
    edit(next);
    m_model.setCameraOverlay(next);
}

void CameraPopover::sync()
{
    const CameraOverlayConfiguration& overlay = m_model.cameraOverlay();
    {
        const QSignalBlocker blocker(m_enable);
        m_enable->setChecked(overlay.isEnabled);
    }
    {
        const QSignalBlocker blocker(m_source);
        // Sliders change the overlay many times a second; the list rarely.
        const QList<CameraChoice> choices =
            cameraChoices(m_availableCameras, overlay.cameraDeviceID);
        if (choices != m_shownChoices) {
            m_source->clear();
            for (const CameraChoice& choice : choices)
                m_source->addItem(choice.title,
                                  choice.deviceID ? QVariant(*choice.deviceID) : QVariant());
            m_shownChoices = choices;
        }
        const int index = overlay.cameraDeviceID ? m_source->findData(*overlay.cameraDeviceID) : 0;
        m_source->setCurrentIndex(std::max(index, 0));
    }
    {
        const QSignalBlocker blocker(m_mirror);
        m_mirror->setChecked(overlay.isMirrored);
    }
    if (QAbstractButton* position = m_positions->button(int(overlay.position)))
        position->setChecked(true);
    if (QAbstractButton* shape = m_shapes->button(int(overlay.shape)))
        shape->setChecked(true);
    m_sizeTitle->setText(cameraSizeTitle(overlay.sizeScale));
    {
        const QSignalBlocker blocker(m_size);
        m_size->setValue(sizeSliderValue(overlay.sizeScale));
    }
    for (int i = 0; i < m_margins.size(); ++i) {
        const double value = overlay.*(marginEdges[i].field);
        const QSignalBlocker blocker(m_margins.at(i));
        m_margins.at(i)->setValue(qRound(value));
        m_marginValues.at(i)->setText(QString::number(qRound(value)));
    }
    const bool margins = hasMargins(overlay.position);
    m_marginPanel->setVisible(margins);
    m_noMargins->setVisible(!margins);
    adjustSize();
}

} // namespace vistrel
