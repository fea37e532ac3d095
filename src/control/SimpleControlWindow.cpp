#include "control/SimpleControlWindow.h"

#include "coordination/MainViewModel.h"
#include "presentation/WindowRegistry.h"

#include <QCheckBox>
#include <QContextMenuEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenu>
#include <QPushButton>
#include <QToolButton>
#include <QVBoxLayout>

namespace vistrel {

SimpleControlWindow::SimpleControlWindow(MainViewModel& viewModel, WindowRegistry& registry,
                                         QMenu* appMenu, std::function<void()> quit,
                                         QWidget* parent)
    : QWidget(parent, Qt::Window), m_viewModel(viewModel), m_registry(registry), m_appMenu(appMenu),
      m_summary(new QLabel(this)), m_outputButton(new QPushButton(this)),
      m_alwaysOnTop(new QCheckBox(tr("Always on Top"), this))
{
    auto* title = new QLabel(tr("Vistrel"), this);
    QFont titleFont = title->font();
    titleFont.setBold(true);
    titleFont.setPointSizeF(titleFont.pointSizeF() * 1.3);
    title->setFont(titleFont);

    auto* menuButton = new QToolButton(this);
    menuButton->setText(tr("Menu"));
    menuButton->setIcon(QIcon::fromTheme(QStringLiteral("open-menu-symbolic")));
    menuButton->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    menuButton->setPopupMode(QToolButton::InstantPopup);
    menuButton->setMenu(appMenu);

    auto* quitButton = new QPushButton(tr("Quit"), this);
    connect(quitButton, &QPushButton::clicked, this, [quit] { quit(); });

    auto* header = new QHBoxLayout;
    header->addWidget(title);
    header->addStretch();
    header->addWidget(menuButton);
    auto* actions = new QHBoxLayout;
    actions->addWidget(m_outputButton);
    actions->addWidget(m_alwaysOnTop);
    actions->addStretch();
    actions->addWidget(quitButton);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(16, 12, 16, 12);
    layout->addLayout(header);
    layout->addWidget(m_summary);
    layout->addStretch();
    layout->addLayout(actions);

    connect(m_outputButton, &QPushButton::clicked, this, [this] {
        if (m_registry.isVisible(ManagedWindowKind::output))
            m_registry.hide(ManagedWindowKind::output);
        else
            m_registry.show(ManagedWindowKind::output, true);
    });
    connect(&m_registry, &WindowRegistry::outputPresentationChanged, this,
            &SimpleControlWindow::syncOutputButton);
    m_alwaysOnTop->setChecked(m_viewModel.isAlwaysOnTop());
    connect(m_alwaysOnTop, &QCheckBox::toggled, &m_viewModel, &MainViewModel::setAlwaysOnTop);
    connect(&m_viewModel, &MainViewModel::isAlwaysOnTopChanged, m_alwaysOnTop,
            &QCheckBox::setChecked);
    connect(&m_viewModel, &MainViewModel::policyChanged, this, &SimpleControlWindow::syncSummary);
    connect(&m_viewModel, &MainViewModel::displaysChanged, this, &SimpleControlWindow::syncSummary);
    connect(&m_viewModel, &MainViewModel::selectedDisplayIDChanged, this,
            &SimpleControlWindow::syncSummary);
    syncSummary();
    syncOutputButton();
}

void SimpleControlWindow::contextMenuEvent(QContextMenuEvent* event)
{
    if (m_appMenu)
        m_appMenu->popup(event->globalPos());
}

void SimpleControlWindow::syncSummary()
{
    m_summary->setText(tr("%1 · %2 · %3")
                           .arg(m_viewModel.selectedDisplayName(), m_viewModel.sourceSummary(),
                                m_viewModel.ruleCountText()));
}

void SimpleControlWindow::syncOutputButton()
{
    const bool docked = m_registry.outputPresentation() == OutputWindowPresentation::docked;
    m_outputButton->setText(docked ? tr("Hidden") : tr("Capture Area"));
}

} // namespace vistrel
