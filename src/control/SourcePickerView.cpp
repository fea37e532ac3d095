#include "control/SourcePickerView.h"

#include "control/SourcePickerList.h"
#include "control/SourcePickerStyle.h"
#include "coordination/MainViewModel.h"
#include "presentation/SymbolIcon.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QStackedWidget>
#include <QVBoxLayout>

namespace vistrel {

namespace {

void setTextIfChanged(QLabel* label, const QString& text)
{
    if (label->text() != text)
        label->setText(text);
}

QPalette secondaryText(QPalette palette)
{
    palette.setColor(QPalette::WindowText, secondaryTextColor(palette));
    return palette;
}

} // namespace

SourcePickerView::SourcePickerView(MainViewModel& viewModel, QWidget* parent)
    : QWidget(parent), m_viewModel(viewModel), m_search(new QLineEdit(this)),
      m_summary(new QLabel(this)), m_pages(new QStackedWidget(this)),
      m_list(new SourcePickerList(m_pages)), m_emptySymbol(nullptr), m_emptyTitle(nullptr),
      m_emptyText(nullptr), m_reset(new QPushButton(tr("Reset All Sources"), this))
{
    AppListViewModel* sources = m_viewModel.appListViewModel();
    m_search->setPlaceholderText(tr("Search apps or windows"));
    m_search->setClearButtonEnabled(true);
    m_search->setText(sources->searchQuery());
    m_summary->setWordWrap(true);
    m_summary->setPalette(secondaryText(m_summary->palette()));
    m_pages->addWidget(m_list);
    m_pages->addWidget(createEmptyPage());

    auto* footer = new QHBoxLayout;
    footer->addStretch();
    footer->addWidget(m_reset);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(12, 12, 12, 12);
    layout->addWidget(m_search);
    layout->addWidget(m_summary);
    layout->addWidget(m_pages, 1);
    layout->addLayout(footer);

    connect(m_search, &QLineEdit::textChanged, sources, &AppListViewModel::setSearchQuery);
    connect(sources, &AppListViewModel::searchQueryChanged, this, [this](const QString& query) {
        if (m_search->text() != query)
            m_search->setText(query);
    });
    // allApplications carries the summary, applications the rows, policy the
    // states; one publication may change all three and gets one refresh.
    connect(sources, &AppListViewModel::allApplicationsChanged, this,
            &SourcePickerView::scheduleRefresh);
    connect(sources, &AppListViewModel::applicationsChanged, this,
            &SourcePickerView::scheduleRefresh);
    connect(sources, &AppListViewModel::policyChanged, this, &SourcePickerView::scheduleRefresh);
    connect(m_reset, &QPushButton::clicked, &m_viewModel, &MainViewModel::resetRules);
    connect(m_list, &SourcePickerList::applicationToggled, &m_viewModel,
            &MainViewModel::toggleApplication);
    connect(m_list, &SourcePickerList::windowToggled, &m_viewModel, &MainViewModel::toggleWindow);
    connect(m_list, &SourcePickerList::expansionToggled, this, &SourcePickerView::toggleExpansion);
    refresh();
}

QWidget* SourcePickerView::createEmptyPage()
{
    auto* page = new QWidget(m_pages);
    m_emptySymbol = new QLabel(page);
    m_emptyTitle = new QLabel(page);
    m_emptyText = new QLabel(page);
    QFont titleFont = m_emptyTitle->font();
    titleFont.setWeight(QFont::DemiBold);
    titleFont.setPointSizeF(titleFont.pointSizeF() * 1.15);
    m_emptyTitle->setFont(titleFont);
    m_emptyText->setWordWrap(true);
    m_emptyText->setPalette(secondaryText(m_emptyText->palette()));
    auto* layout = new QVBoxLayout(page);
    layout->addStretch();
    for (QLabel* label : {m_emptySymbol, m_emptyTitle, m_emptyText}) {
        label->setAlignment(Qt::AlignCenter);
        layout->addWidget(label);
    }
    layout->addStretch();
    return page;
}

void SourcePickerView::scheduleRefresh()
{
    if (m_refreshPending)
        return;
    m_refreshPending = true;
    QMetaObject::invokeMethod(
        this,
        [this] {
            if (m_refreshPending)
                refresh();
        },
        Qt::QueuedConnection);
}

void SourcePickerView::refresh()
{
    m_refreshPending = false;
    const AppListViewModel* sources = m_viewModel.appListViewModel();
    m_content = SourcePickerRows::build(
        SourcePickerInput{sources->applications(), sources->allApplications(), sources->policy(),
                          m_expanded, sources->searchQuery(), m_viewModel.sourceSummary()});

    setTextIfChanged(m_summary, m_content.summary);
    m_list->apply(m_content.applications);
    if (const auto& empty = m_content.emptyState) {
        if (m_emptySymbolName != empty->symbol) {
            m_emptySymbolName = empty->symbol;
            m_emptySymbol->setPixmap(QPixmap::fromImage(
                symbolImage(empty->symbol, 40, m_emptyText->palette().color(QPalette::WindowText),
                            devicePixelRatioF())));
        }
        setTextIfChanged(m_emptyTitle, empty->title);
        setTextIfChanged(m_emptyText, empty->text);
    }
    m_pages->setCurrentIndex(m_content.emptyState ? 1 : 0);
    m_reset->setEnabled(m_viewModel.hasActiveRules());
}

void SourcePickerView::toggleExpansion(const QString& key)
{
    if (!m_expanded.remove(key))
        m_expanded.insert(key);
    refresh();
}

} // namespace vistrel
