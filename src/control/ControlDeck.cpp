#include "control/ControlDeck.h"

#include "control/CanvasPopover.h"
#include "control/ChoicePopovers.h"
#include "control/CompactTile.h"
#include "control/DeckNoticeView.h"
#include "control/Popover.h"
#include "control/PresetPopover.h"
#include "coordination/AppListViewModel.h"
#include "coordination/MainViewModel.h"
#include "coordination/PresetModel.h"
#include "presentation/PopoverHub.h"
#include "presentation/SymbolIcon.h"
#include "presentation/WindowRegistry.h"

#include <QCheckBox>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QMessageBox>
#include <QPainter>
#include <QPushButton>
#include <QToolButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace vistrel {

namespace {

constexpr int gridColumns = 5;

QPixmap dot(const QColor& colour, qreal ratio)
{
    QPixmap pixmap(QSize(10, 10) * ratio);
    pixmap.setDevicePixelRatio(ratio);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(colour);
    painter.drawEllipse(QRectF(1, 1, 8, 8));
    return pixmap;
}

QIcon symbolIcon(const QString& symbol, const QColor& tint, qreal ratio)
{
    return QIcon(QPixmap::fromImage(symbolImage(symbol, 16, tint, ratio)));
}

std::optional<DeckPopover> popoverOf(DeckTile tile)
{
    switch (tile) {
    case DeckTile::sources:
        return DeckPopover::sources;
    case DeckTile::display:
        return DeckPopover::display;
    case DeckTile::frame:
        return DeckPopover::frame;
    case DeckTile::mode:
        return DeckPopover::mode;
    case DeckTile::canvas:
        return DeckPopover::canvas;
    case DeckTile::presets:
        return DeckPopover::presets;
    case DeckTile::camera:
        return DeckPopover::camera;
    case DeckTile::panic:
    case DeckTile::preview:
    case DeckTile::quit:
        break;
    }
    return std::nullopt;
}

} // namespace

ControlDeck::ControlDeck(MainViewModel& model, WindowRegistry& registry, PopoverHub& hub,
                         Actions actions, QWidget* parent)
    : QWidget(parent), m_model(model), m_registry(registry), m_hub(hub),
      m_actions(std::move(actions))
{
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(12, 8, 12, 4);
    layout->setSpacing(6);
    layout->addWidget(buildHeader());

    auto* grid = new QGridLayout;
    grid->setSpacing(6);
    int index = 0;
    for (DeckTile kind : allDeckTiles) {
        auto* tile = new CompactTile(this);
        connect(tile, &CompactTile::clicked, this, [this, kind] { activate(kind); });
        m_tiles[kind] = tile;
        grid->addWidget(tile, index / gridColumns, index % gridColumns);
        ++index;
    }
    layout->addLayout(grid);

    m_noticeView = new DeckNoticeView([this] { m_model.requestScreenRecordingAccess(); },
                                      [this] { m_model.openScreenRecordingSettings(); },
                                      [this] { m_model.dismissSettingsNotice(); }, this);
    m_noticeView->hide();
    layout->addWidget(m_noticeView);
    layout->addStretch();

    const auto resync = [this] {
        sync();
    };
    connect(&m_model, &MainViewModel::configurationChanged, this, resync);
    connect(&m_model, &MainViewModel::policyChanged, this, resync);
    connect(&m_model, &MainViewModel::displaysChanged, this, resync);
    connect(&m_model, &MainViewModel::streamStatusChanged, this, resync);
    connect(&m_model, &MainViewModel::permissionStateChanged, this, resync);
    connect(&m_model, &MainViewModel::discoveryErrorMessageChanged, this, resync);
    connect(&m_model, &MainViewModel::settingsNoticeChanged, this, resync);
    connect(&m_model, &MainViewModel::isPanicHiddenChanged, this, resync);
    connect(&m_model, &MainViewModel::isAlwaysOnTopChanged, this, resync);
    connect(&m_model, &MainViewModel::cameraOverlayChanged, this, resync);
    connect(m_model.presetModel(), &PresetModel::activePresetIDChanged, this, resync);
    connect(m_model.presetModel(), &PresetModel::presetsChanged, this, resync);
    connect(m_model.appListViewModel(), &AppListViewModel::allApplicationsChanged, this, resync);
    connect(&m_registry, &WindowRegistry::outputPresentationChanged, this, resync);
    connect(&m_registry, &WindowRegistry::isPreviewVisibleChanged, this, resync);
    sync();
}

QWidget* ControlDeck::buildHeader()
{
    auto* header = new QWidget(this);
    m_statusDot = new QLabel(header);
    m_statusTitle = new QLabel(header);
    // A semibold caption: the longest status title fits beside the buttons.
    QFont semibold = m_statusTitle->font();
    semibold.setWeight(QFont::DemiBold);
    semibold.setPointSizeF(semibold.pointSizeF() * 0.88);
    m_statusTitle->setFont(semibold);
    m_statusTitle->setMinimumWidth(1);
    m_statusTitle->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    m_statusDetail = new QLabel(header);
    QFont small = m_statusDetail->font();
    small.setPointSizeF(small.pointSizeF() * 0.85);
    m_statusDetail->setFont(small);
    m_statusDetail->setForegroundRole(QPalette::PlaceholderText);

    // The header's controls in the caption size, so the status has room.
    QFont caption = font();
    caption.setPointSizeF(caption.pointSizeF() * 0.88);
    m_outputButton = new QToolButton(header);
    m_outputButton->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    m_outputButton->setAutoRaise(true);
    m_outputButton->setFont(caption);
    connect(m_outputButton, &QToolButton::clicked, this, [this] {
        if (m_registry.isVisible(ManagedWindowKind::output))
            m_registry.hide(ManagedWindowKind::output);
        else
            m_registry.show(ManagedWindowKind::output, true);
    });
    m_alwaysOnTop = new QCheckBox(tr("Always on Top"), header);
    m_alwaysOnTop->setFont(caption);
    connect(m_alwaysOnTop, &QCheckBox::toggled, this, [this](bool onTop) {
        if (onTop == m_model.isAlwaysOnTop())
            return;
        m_model.setAlwaysOnTop(onTop);
        m_model.schedulePersistence();
    });
    auto* info = new QToolButton(header);
    info->setAutoRaise(true);
    info->setIcon(symbolIcon(u"info.circle"_s, deckColor::secondary, devicePixelRatioF()));
    info->setToolTip(tr("Current Session"));
    connect(info, &QToolButton::clicked, this, [this] { openPopover(DeckPopover::info); });

    auto* menu = new QToolButton(header);
    menu->setAutoRaise(true);
    menu->setIcon(symbolIcon(u"ellipsis.circle"_s, deckColor::secondary, devicePixelRatioF()));
    menu->setToolTip(tr("Vistrel"));
    menu->setPopupMode(QToolButton::InstantPopup);
    menu->setMenu(m_actions.menu);
    menu->setVisible(m_actions.menu != nullptr);

    auto* titleRow = new QHBoxLayout;
    titleRow->setSpacing(6);
    titleRow->addWidget(m_statusDot);
    titleRow->addWidget(m_statusTitle, 1);
    auto* text = new QVBoxLayout;
    text->setSpacing(0);
    text->addLayout(titleRow);
    text->addWidget(m_statusDetail);
    auto* layout = new QHBoxLayout(header);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(2);
    layout->addLayout(text, 1);
    layout->addWidget(m_outputButton);
    layout->addWidget(m_alwaysOnTop);
    layout->addWidget(info);
    layout->addWidget(menu);
    return header;
}

void ControlDeck::hideEvent(QHideEvent* event)
{
    // A popover that stays open for drops would outlive a hidden deck.
    if (m_popover)
        m_popover->close();
    QWidget::hideEvent(event);
}

std::optional<DeckPopover> ControlDeck::activePopover() const
{
    return m_popover ? m_popoverKind : std::nullopt;
}

void ControlDeck::activate(DeckTile tile)
{
    if (const auto popover = popoverOf(tile)) {
        openPopover(*popover);
    } else if (tile == DeckTile::panic) {
        m_model.togglePanicHidden();
        m_model.scheduleCaptureUpdate();
    } else if (tile == DeckTile::preview) {
        if (m_actions.togglePreview)
            m_actions.togglePreview();
    } else if (tile == DeckTile::quit) {
        confirmQuit();
    }
}

void ControlDeck::openPopover(DeckPopover kind)
{
    if (m_popover)
        m_popover->close();
    m_popover = makePopover(kind);
    m_popoverKind = kind;
    connect(m_popover, &Popover::closed, this, [this, kind] {
        if (m_popoverKind == kind)
            m_popoverKind.reset();
    });
    QWidget* anchor = this;
    for (DeckTile tile : allDeckTiles)
        if (popoverOf(tile) == kind)
            anchor = m_tiles.at(tile);
    m_popover->showUnder(anchor);
}

Popover* ControlDeck::makePopover(DeckPopover kind)
{
    switch (kind) {
    case DeckPopover::mode:
        return makeModePopover(m_model, m_hub, this);
    case DeckPopover::frame:
        return makeFramePopover(m_model, m_hub, this);
    case DeckPopover::display:
        return makeDisplayPopover(m_model, m_hub, this);
    case DeckPopover::sources: {
        auto* popover = new Popover(tr("Sources"), m_hub, this);
        if (m_actions.makeSourcePicker)
            popover->contentLayout()->addWidget(m_actions.makeSourcePicker(popover));
        return popover;
    }
    case DeckPopover::canvas:
        return new CanvasPopover(m_model, m_hub, this);
    case DeckPopover::camera:
        return new CameraPopover(m_model, m_actions.camera, m_hub, this);
    case DeckPopover::presets:
        return new PresetPopover(m_model, m_hub, this);
    case DeckPopover::info:
        return makeInformationPopover(
            m_model, m_actions.panicKeyProblem ? m_actions.panicKeyProblem() : QString(), m_hub,
            this);
    }
    return new Popover(QString(), m_hub, this);
}

void ControlDeck::confirmQuit()
{
    if (m_popover)
        m_popover->close();
    QMessageBox alert(this);
    alert.setIcon(QMessageBox::Question);
    alert.setWindowTitle(tr("Quit Vistrel?"));
    alert.setText(tr("Quit Vistrel?"));
    alert.setInformativeText(tr("Are you sure you want to quit Vistrel? Any active screen "
                                "sharing session will be stopped."));
    QPushButton* quit = alert.addButton(tr("Quit"), QMessageBox::AcceptRole);
    alert.addButton(tr("Cancel"), QMessageBox::RejectRole);
    alert.setDefaultButton(quit);
    alert.exec();
    if (alert.clickedButton() == quit && m_actions.quit)
        m_actions.quit();
}

void ControlDeck::sync()
{
    const qreal ratio = devicePixelRatioF();
    const StatusLine status = statusLine(m_model.streamStatus());
    m_statusDot->setPixmap(dot(status.colour, ratio));
    m_statusTitle->setText(status.title);
    m_statusTitle->setToolTip(status.title);
    const bool missing = m_model.permissionState() == ScreenRecordingPermissionState::missing;
    m_statusDetail->setText(missing ? tr("Grant Screen Recording access to use Vistrel.")
                                    : m_model.sourceSummary());

    const bool docked = m_registry.outputPresentation() == OutputWindowPresentation::docked;
    m_outputButton->setText(docked ? tr("Hidden") : tr("Capture Area"));
    m_outputButton->setIcon(
        symbolIcon(docked ? u"eye.slash"_s : u"eye"_s, deckColor::secondary, ratio));
    if (m_alwaysOnTop->isChecked() != m_model.isAlwaysOnTop())
        m_alwaysOnTop->setChecked(m_model.isAlwaysOnTop());

    DeckInputs inputs;
    inputs.activeRuleCount = m_model.policy().activeRuleCount();
    inputs.visibilityMode = m_model.policy().mode;
    inputs.contentMode = m_model.outputContentMode();
    inputs.frameMode = m_model.outputFrameMode();
    if (m_model.selectedDisplayID())
        inputs.selectedDisplayName = m_model.selectedDisplayName();
    inputs.canvasMode = m_model.canvasBackground().mode;
    inputs.camera = m_model.cameraOverlay();
    inputs.activePresetTitle = m_model.activePresetTitle();
    inputs.isPanicHidden = m_model.isPanicHidden();
    inputs.isPreviewVisible = m_registry.isPreviewVisible();
    for (const auto& [kind, tile] : m_tiles)
        tile->setState(tileState(kind, inputs));

    const std::optional<DeckNotice> notice =
        deckNotice(m_model.permissionState(), m_model.discoveryErrorMessage(),
                   m_model.streamStatus(), m_model.settingsNotice());
    if (notice)
        m_noticeView->setNotice(*notice);
    m_noticeView->setVisible(notice.has_value());
    const bool wasDue = m_notice.has_value();
    m_notice = notice;
    if (wasDue != notice.has_value())
        Q_EMIT noticeDueChanged(notice.has_value());
}

} // namespace vistrel
