#include "ui/BrowseView.h"

#include "ui/BrowseTexts.h"
#include "ui/EntrySortProxy.h"
#include "ui/EntryTableModel.h"
#include "ui/GroupTreeModel.h"

#include <QAction>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLineEdit>
#include <QPainter>
#include <QProxyStyle>
#include <QSplitter>
#include <QTableView>
#include <QTreeView>
#include <QStyleOptionHeader>
#include <QVBoxLayout>

#include <algorithm>

namespace quillon::ui {
namespace {

// The sort indicator as a chevron pointing up while ascending. Qt's header asks for "SortDown" when the order
// is ascending, and most styles then draw a downward arrow.
class ChevronHeaderStyle : public QProxyStyle {
public:
    void drawPrimitive(PrimitiveElement element, const QStyleOption* option, QPainter* painter,
                       const QWidget* widget) const override
    {
        const auto* header = qstyleoption_cast<const QStyleOptionHeader*>(option);
        if (element != PE_IndicatorHeaderArrow || !header || header->sortIndicator == QStyleOptionHeader::None) {
            QProxyStyle::drawPrimitive(element, option, painter, widget);
            return;
        }
        const bool up = header->sortIndicator == QStyleOptionHeader::SortDown;
        const QRectF box = option->rect;
        const qreal half = std::min(box.width(), box.height()) / 3.0;
        const QPointF centre = box.center();
        const qreal tip = up ? -half / 2 : half / 2;
        const QPointF points[] = {centre + QPointF(-half, -tip), centre + QPointF(0, tip), centre + QPointF(half, -tip)};
        painter->save();
        painter->setRenderHint(QPainter::Antialiasing);
        painter->setPen(QPen(option->palette.color(QPalette::ButtonText), 1.5, Qt::SolidLine, Qt::RoundCap,
                             Qt::RoundJoin));
        painter->drawPolyline(points, 3);
        painter->restore();
    }
};

} // namespace

BrowseView::BrowseView(state::DatabaseSession& session, QWidget* parent)
    : QWidget(parent), session_(session), groupModel_(new GroupTreeModel(session, this)),
      entryModel_(new EntryTableModel(session, this)), sortProxy_(new EntrySortProxy(this)),
      splitter_(new QSplitter(Qt::Horizontal, this)), tree_(new QTreeView(splitter_)),
      table_(new QTableView(splitter_)), search_(new QLineEdit(this)), findAction_(new QAction(this)),
      dropRules_(session)
{
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(splitter_);
    splitter_->setChildrenCollapsible(false);
    splitter_->setStretchFactor(0, 1);
    splitter_->setStretchFactor(1, 3);
    splitter_->setSizes({220, 660});

    tree_->setModel(groupModel_);
    tree_->setHeaderHidden(true);
    tree_->setUniformRowHeights(true);
    tree_->setEditTriggers(QAbstractItemView::DoubleClicked | QAbstractItemView::EditKeyPressed);
    tree_->setAccessibleName(browseText::groupsName);
    tree_->installEventFilter(this);
    for (QAbstractItemView* view : {static_cast<QAbstractItemView*>(tree_), static_cast<QAbstractItemView*>(table_)}) {
        view->setDragDropMode(QAbstractItemView::DragDrop);
        view->setDefaultDropAction(Qt::MoveAction);
        view->setDropIndicatorShown(true);
    }
    // A group held over a closed group opens it, so that a drop can reach the groups inside.
    tree_->setAutoExpandDelay(700);
    groupModel_->setDropRules(&dropRules_);

    sortProxy_->setSourceModel(entryModel_);
    sortProxy_->setSortKeys(&session.sortKeys());
    sortProxy_->setDropRules(&dropRules_);
    table_->setModel(sortProxy_);
    table_->setAccessibleName(browseText::entriesName);
    table_->setSelectionBehavior(QAbstractItemView::SelectRows);
    table_->setSelectionMode(QAbstractItemView::SingleSelection);
    table_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    table_->setShowGrid(false);
    table_->setAlternatingRowColors(true);
    table_->setWordWrap(false);
    // Tab moves on to the next control instead of walking the cells.
    table_->setTabKeyNavigation(false);
    table_->verticalHeader()->hide();
    table_->verticalHeader()->setDefaultSectionSize(table_->fontMetrics().height() + 8);
    auto* header = table_->horizontalHeader();
    header->setSectionsClickable(true);
    header->setHighlightSections(false);
    header->setStretchLastSection(false);
    header->setSectionResizeMode(QHeaderView::Interactive);
    header->setSectionResizeMode(EntryTableModel::title, QHeaderView::Stretch);
    header->resizeSection(EntryTableModel::username, 140);
    header->resizeSection(EntryTableModel::password, 80);
    header->resizeSection(EntryTableModel::modified, 160);
    auto* chevrons = new ChevronHeaderStyle;
    chevrons->setParent(header);
    header->setStyle(chevrons);
    header->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    header->setSortIndicatorShown(true);
    header->setSortIndicator(-1, Qt::AscendingOrder);
    connect(header, &QHeaderView::sectionClicked, sortProxy_, &EntrySortProxy::headerClicked);
    connect(sortProxy_, &EntrySortProxy::sortStateChanged, this, &BrowseView::showSortIndicator);
    setTabOrder(tree_, table_);

    search_->hide();
    search_->setPlaceholderText(browseText::searchName);
    search_->setAccessibleName(browseText::searchName);
    search_->setClearButtonEnabled(true);
    search_->installEventFilter(this);
    connect(search_.data(), &QLineEdit::textChanged, this, [this](const QString& text) {
        entryModel_->setSearch(text, scope_);
    });

    findAction_->setText(browseText::findAction);
    findAction_->setShortcut(QKeySequence::Find);
    findAction_->setShortcutContext(Qt::WindowShortcut);
    addAction(findAction_);
    connect(findAction_, &QAction::triggered, this, &BrowseView::focusSearch);

    connect(tree_->selectionModel(), &QItemSelectionModel::currentChanged, this, [this](const QModelIndex& current) {
        entryModel_->setGroup(groupModel_->groupAt(current));
        Q_EMIT selectedGroupChanged();
    });
    connect(table_->selectionModel(), &QItemSelectionModel::currentChanged, this,
            [this] { Q_EMIT selectedEntryChanged(); });
    // A reset clears the selection without telling the selection model's listeners.
    connect(sortProxy_, &QAbstractItemModel::modelReset, this, [this] { Q_EMIT selectedEntryChanged(); });
    // After the models have reset themselves.
    connect(&session, &state::DatabaseSession::documentReset, this, &BrowseView::documentReset);

    selectTopGroup();
}

BrowseView::~BrowseView()
{
    // Placed in the window's toolbar it is no child of this view, and what was typed may be a password.
    delete search_.data();
}

std::optional<model::Group> BrowseView::selectedGroup() const
{
    return groupModel_->groupAt(tree_->currentIndex());
}

std::optional<model::Entry> BrowseView::selectedEntry() const
{
    return entryModel_->entryAt(sortProxy_->mapToSource(table_->currentIndex()));
}

void BrowseView::selectGroup(const model::Group& group)
{
    const auto at = groupModel_->indexOf(group.element());
    if (!at.isValid())
        return;
    for (auto up = at.parent(); up.isValid(); up = up.parent())
        tree_->expand(up);
    tree_->setCurrentIndex(at);
}

void BrowseView::selectEntry(const model::Entry& entry)
{
    const auto at = sortProxy_->mapFromSource(entryModel_->indexOf(entry.element()));
    if (at.isValid())
        table_->setCurrentIndex(at);
}

void BrowseView::addDetailPane(QWidget* pane)
{
    splitter_->addWidget(pane);
    splitter_->setStretchFactor(splitter_->indexOf(pane), 2);
    splitter_->setSizes({190, 430, 430}); // the inspector's rows want about 430 pixels
}

void BrowseView::setSearchScope(model::SearchScope scope)
{
    scope_ = scope;
    entryModel_->setSearch(search_ ? search_->text() : QString(), scope_);
}

void BrowseView::focusSearch()
{
    if (!search_)
        return;
    search_->setFocus(Qt::ShortcutFocusReason);
    search_->selectAll();
}

bool BrowseView::eventFilter(QObject* watched, QEvent* event)
{
    if (event->type() != QEvent::KeyPress)
        return QWidget::eventFilter(watched, event);
    const int key = static_cast<QKeyEvent*>(event)->key();
    if (watched == search_ && key == Qt::Key_Escape) {
        search_->clear();
        table_->setFocus(Qt::OtherFocusReason);
        return true;
    }
    // Return on a group, or Return or Down in the search field, goes on to the entries listed, the first one
    // selected when none is. The Return that ends a rename reaches the tree from its editor, which still has
    // the focus then: that one stays with the tree.
    const bool toEntries = key == Qt::Key_Return || key == Qt::Key_Enter || (watched == search_ && key == Qt::Key_Down);
    if (((watched == tree_ && tree_->hasFocus()) || watched == search_) && toEntries) {
        if (!table_->currentIndex().isValid() && sortProxy_->rowCount() > 0)
            table_->setCurrentIndex(sortProxy_->index(0, 0));
        table_->setFocus(Qt::TabFocusReason);
        return true;
    }
    return QWidget::eventFilter(watched, event);
}

void BrowseView::documentReset()
{
    // What was typed may have been a password; it does not outlive the lock.
    if (search_)
        search_->clear();
    selectTopGroup();
    if (!session_.isOpen())
        Q_EMIT selectedGroupChanged();
}

void BrowseView::showSortIndicator()
{
    auto* header = table_->horizontalHeader();
    const auto column = sortProxy_->sortColumn();
    if (!column)
        header->setSortIndicator(-1, Qt::AscendingOrder);
    else
        header->setSortIndicator(*column, sortProxy_->sortDirection() == SortDirection::ascending
                                              ? Qt::AscendingOrder
                                              : Qt::DescendingOrder);
}

void BrowseView::selectTopGroup()
{
    const auto top = groupModel_->topIndex();
    if (!top.isValid())
        return;
    tree_->expand(top);
    tree_->setCurrentIndex(top);
}

} // namespace quillon::ui
