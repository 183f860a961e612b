#include "Sidebar.h"

#include "Icons.h"
#include "ScanningView.h"
#include "StorageModel.h"
#include "Text.h"
#include "Words.h"
#include "platform/Platform.h"

#include <QDesktopServices>
#include <QFileDialog>
#include <QLabel>
#include <QSocketNotifier>
#include <QUrl>
#include <fcntl.h>
#include <unistd.h>
#include <QHeaderView>
#include <QPushButton>
#include <QTreeWidget>
#include <QVBoxLayout>
#include <sys/stat.h>

namespace brenvo {

namespace {

constexpr int kSizeColumn = 1;

bool isDirectory(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

SidebarItem locationItem(ScanLocation location) {
    SidebarItem item;
    item.kind = SidebarItem::Kind::location;
    item.location = std::move(location);
    return item;
}

SidebarItem simpleItem(SidebarItem::Kind kind) {
    SidebarItem item;
    item.kind = kind;
    return item;
}

const char* locationSymbol(ScanLocation::Kind kind) {
    switch (kind) {
    case ScanLocation::Kind::custom: return "folder";
    case ScanLocation::Kind::downloads: return "arrow.down.circle";
    case ScanLocation::Kind::desktop: return "menubar.dock.rectangle";
    case ScanLocation::Kind::documents: return "doc";
    case ScanLocation::Kind::home: return "house";
    case ScanLocation::Kind::iCloudDrive: return "icloud";
    }
    return "folder";
}

bool hasFolderChildren(const FileNode* node) {
    for (const FileNode* child : node->children())
        if (child->isFolder()) return true;
    return false;
}

} // namespace

Sidebar::Sidebar(StorageModel& model, QWidget* parent) : QWidget(parent), model_(model) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    tree_ = new QTreeWidget(this);
    tree_->setColumnCount(2);
    tree_->header()->hide();
    tree_->header()->setStretchLastSection(false);
    tree_->header()->setSectionResizeMode(0, QHeaderView::Stretch);
    tree_->header()->setSectionResizeMode(kSizeColumn, QHeaderView::ResizeToContents);
    tree_->setFrameShape(QFrame::NoFrame);
    tree_->setIndentation(14);
    tree_->setRootIsDecorated(false);
    tree_->setSelectionMode(QAbstractItemView::SingleSelection);
    tree_->setIconSize(QSize(18, 18));
    layout->addWidget(tree_, 1);
    auto* bottom = new QVBoxLayout;
    bottom->setContentsMargins(10, 10, 10, 10);
    accessCard_ = makeAccessCard();
    bottom->addWidget(accessCard_);
    choose_ = new QPushButton(icon("folder.badge.plus"), QStringLiteral("Choose Folder\u2026"), this);
    choose_->setMinimumHeight(32);
    bottom->addWidget(choose_);
    layout->addLayout(bottom);
    setMinimumWidth(180);

    connect(choose_, &QPushButton::clicked, this, &Sidebar::chooseFolder);
    connect(tree_, &QTreeWidget::itemSelectionChanged, this, &Sidebar::selectionChangedByUser);
    connect(tree_, &QTreeWidget::itemExpanded, this, [this](QTreeWidgetItem* row) {
        auto found = items_.find(row);
        if (found == items_.end() || found->second.kind != SidebarItem::Kind::folder) return;
        expanded_.insert(found->second.folder->id());
        populate(row);
    });
    connect(tree_, &QTreeWidget::itemCollapsed, this, [this](QTreeWidgetItem* row) {
        auto found = items_.find(row);
        if (found != items_.end() && found->second.folder) expanded_.erase(found->second.folder->id());
    });
    connect(&model_, &StorageModel::treeChanged, this, &Sidebar::rebuildFolders);
    connect(&model_, &StorageModel::currentChanged, this, &Sidebar::followCurrent);
    connect(&model_, &StorageModel::locationChanged, this, [this] {
        refreshCustomRow();
        if (!model_.location())
            select(std::nullopt);
        else if (model_.page() == StorageModel::Page::folder)
            select(locationItem(*model_.location()));
    });
    connect(&model_, &StorageModel::pageChanged, this, [this] {
        if (model_.page() == StorageModel::Page::overview) select(simpleItem(SidebarItem::Kind::overview));
    });

    connect(&model_, &StorageModel::scanStateChanged, this,
            [this] { accessCard_->setVisible(!model_.hasFullDiskAccess()); });
    accessCard_->setVisible(!model_.hasFullDiskAccess());

    disks_ = platform::isDemo() ? std::vector<std::string>{} : platform::mountedDisks();
    rebuild();
    select(simpleItem(SidebarItem::Kind::overview));
    if (!platform::isDemo()) watchMounts();
}

Sidebar::~Sidebar() {
    if (mountTable_ >= 0) ::close(mountTable_);
}

// The kernel marks the mount table as changed when a volume comes or goes.
void Sidebar::watchMounts() {
    mountTable_ = ::open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC);
    if (mountTable_ < 0) return;
    mounts_ = new QSocketNotifier(mountTable_, QSocketNotifier::Exception, this);
    connect(mounts_, &QSocketNotifier::activated, this, [this] {
        char buffer[4096];
        ::lseek(mountTable_, 0, SEEK_SET);
        while (::read(mountTable_, buffer, sizeof buffer) > 0) {
        }
        refreshDisks();
    });
}

QFrame* Sidebar::makeAccessCard() {
    auto* card = new QFrame(this);
    card->setFrameShape(QFrame::StyledPanel);
    card->setToolTip(say("Brenvo only reads files and deletes nothing unless you choose to. Without Full Disk "
                         "Access macOS also asks separately for Desktop, Documents and Downloads."));
    auto* layout = new QVBoxLayout(card);
    auto* headline = new QLabel(QStringLiteral("Some places aren't measured"), card);
    QFont bold = headline->font();
    bold.setWeight(QFont::DemiBold);
    headline->setFont(bold);
    layout->addWidget(headline);
    auto* text = new QLabel(QStringLiteral("Turn on Full Disk Access to include the Trash, Mail and backups."), card);
    text->setWordWrap(true);
    layout->addWidget(text);
    auto* open = new QPushButton(QStringLiteral("Open Privacy Settings"), card);
    connect(open, &QPushButton::clicked, this, [] {
        QDesktopServices::openUrl(
            QUrl(QStringLiteral("x-apple.systempreferences:com.apple.preference.security?Privacy_AllFiles")));
    });
    layout->addWidget(open);
    return card;
}

QTreeWidgetItem* Sidebar::section(const QString& title) {
    auto* header = new QTreeWidgetItem(tree_, {title});
    header->setFlags(Qt::ItemIsEnabled);
    QFont font = header->font(0);
    font.setWeight(QFont::DemiBold);
    font.setPointSizeF(font.pointSizeF() * 0.9);
    header->setFont(0, font);
    header->setForeground(0, palette().placeholderText());
    return header;
}

QTreeWidgetItem* Sidebar::addRow(QTreeWidgetItem* parent, const QString& title, const char* symbol, SidebarItem item) {
    auto* row = new QTreeWidgetItem(parent, {title});
    row->setIcon(0, icon(symbol));
    items_[row] = std::move(item);
    return row;
}

QTreeWidgetItem* Sidebar::addFolderRow(QTreeWidgetItem* parent, FileNode* folder) {
    const bool unknown = folder->skippedReason() || folder->couldNotRead();
    SidebarItem item;
    item.kind = SidebarItem::Kind::folder;
    item.folder = NodeRef(folder);
    QTreeWidgetItem* row = addRow(parent, toQString(folder->name()), unknown ? "folder.badge.questionmark" : "folder",
                                  std::move(item));
    if (!unknown) {
        row->setText(kSizeColumn, sizeText(folder->size()));
        row->setForeground(kSizeColumn, palette().placeholderText());
        row->setTextAlignment(kSizeColumn, Qt::AlignRight | Qt::AlignVCenter);
    }
    if (auto reason = folder->skippedReason()) row->setToolTip(0, toQString(*reason));
    else if (folder->couldNotRead()) row->setToolTip(0, say("macOS didn't allow access to \u201c{name}\u201d. You can allow it in System Settings \u2192 Privacy & Security \u2192 Files and Folders.").replace(QStringLiteral("{name}"), toQString(folder->name())));
    // Rows below are made when the row is opened: a home folder has tens of thousands of folders.
    if (hasFolderChildren(folder)) row->setChildIndicatorPolicy(QTreeWidgetItem::ShowIndicator);
    if (expanded_.contains(folder->id())) {
        populate(row);
        row->setExpanded(true);
    }
    return row;
}

void Sidebar::populate(QTreeWidgetItem* row) {
    if (row->childCount() > 0) return;
    auto found = items_.find(row);
    if (found == items_.end() || !found->second.folder) return;
    FileNode* folder = found->second.folder.get();
    for (FileNode* child : folder->children())
        if (child->isFolder()) addFolderRow(row, child);
    row->setChildIndicatorPolicy(row->childCount() ? QTreeWidgetItem::ShowIndicator
                                                   : QTreeWidgetItem::DontShowIndicator);
}

void Sidebar::rebuild() {
    updating_ = true;
    tree_->clear();
    items_.clear();
    foldersSection_ = nullptr;

    QTreeWidgetItem* start = section(QStringLiteral("Start here"));
    addRow(start, QStringLiteral("Overview"), "gauge.with.dots.needle.33percent", simpleItem(SidebarItem::Kind::overview));
    for (const ScanLocation& place : ScanLocation::starters())
        addRow(start, locationTitle(place), locationSymbol(place.kind()), locationItem(place));

    moreSection_ = section(QStringLiteral("More"));
    customRow_ = nullptr;
    addRow(moreSection_, locationTitle(ScanLocation::home()), "house", locationItem(ScanLocation::home()));
    if (isDirectory(ScanLocation::iCloudDrive().path(platform::profile())))
        addRow(moreSection_, locationTitle(ScanLocation::iCloudDrive()), "icloud",
               locationItem(ScanLocation::iCloudDrive()));

    if (!disks_.empty()) {
        QTreeWidgetItem* disks = section(QStringLiteral("Disks"));
        for (const std::string& disk : disks_) {
            QTreeWidgetItem* row = addRow(disks, toQString(lastPathComponent(disk)), "externaldrive",
                                          locationItem(ScanLocation::custom(disk)));
            row->setToolTip(0, toQString(disk));
        }
    }

    QTreeWidgetItem* tools = section(QStringLiteral("Tools"));
    addRow(tools, QStringLiteral("Duplicates"), "doc.on.doc", simpleItem(SidebarItem::Kind::duplicates));
    addRow(tools, QStringLiteral("Recently Deleted"), "clock.arrow.circlepath",
           simpleItem(SidebarItem::Kind::recentlyDeleted));
    updating_ = false;
    refreshCustomRow();
    rebuildFolders();
}

// A custom location has a row of its own while it is the location, unless it is one of the disks.
void Sidebar::refreshCustomRow() {
    const auto& location = model_.location();
    const bool wanted = location && location->kind() == ScanLocation::Kind::custom &&
                        std::find(disks_.begin(), disks_.end(), location->path(platform::profile())) == disks_.end();
    if (customRow_ && wanted && items_[customRow_].location == location) return;
    updating_ = true;
    if (customRow_) {
        items_.erase(customRow_);
        delete customRow_;
        customRow_ = nullptr;
    }
    if (wanted) {
        customRow_ = addRow(moreSection_, locationTitle(*location), "folder", locationItem(*location));
        customRow_->setToolTip(0, toQString(location->path(platform::profile())));
    }
    updating_ = false;
}

void Sidebar::rebuildFolders() {
    updating_ = true;
    if (foldersSection_) {
        for (auto it = items_.begin(); it != items_.end();) {
            if (it->second.kind == SidebarItem::Kind::folder)
                it = items_.erase(it);
            else
                ++it;
        }
        delete foldersSection_;
        foldersSection_ = nullptr;
    }
    if (FileNode* root = model_.root()) {
        foldersSection_ = section(QStringLiteral("Folders"));
        for (FileNode* child : root->children())
            if (child->isFolder()) addFolderRow(foldersSection_, child);
    }
    for (int i = 0; i < tree_->topLevelItemCount(); ++i) tree_->topLevelItem(i)->setExpanded(true);
    // A selected folder of an older tree stands for nothing now.
    if (selection_ && selection_->kind == SidebarItem::Kind::folder && !itemFor(*selection_)) selection_.reset();
    updating_ = false;
    followCurrent();
    showSelection();
}

QTreeWidgetItem* Sidebar::itemFor(const SidebarItem& item) const {
    for (const auto& [row, value] : items_)
        if (value == item) return row;
    return nullptr;
}

QTreeWidgetItem* Sidebar::row(const QString& title) const {
    for (const auto& [row, value] : items_)
        if (row->text(0) == title) return row;
    return nullptr;
}

void Sidebar::showSelection() {
    updating_ = true;
    QTreeWidgetItem* row = selection_ ? itemFor(*selection_) : nullptr;
    tree_->clearSelection();
    if (row) {
        // The chosen row is also the current one, so the keyboard's focus frame sits on it and not on the
        // first section's title.
        tree_->setCurrentItem(row, 0, QItemSelectionModel::NoUpdate);
        row->setSelected(true);
        tree_->scrollToItem(row);
    }
    updating_ = false;
}

void Sidebar::select(std::optional<SidebarItem> item) {
    if (selection_ == item) return;
    selection_ = std::move(item);
    showSelection();
    reactToSelection();
}

void Sidebar::selectionChangedByUser() {
    if (updating_) return;
    const auto chosen = tree_->selectedItems();
    if (chosen.isEmpty()) return;
    auto found = items_.find(chosen.front());
    if (found == items_.end()) return; // a section title
    selection_ = found->second;
    reactToSelection();
}

void Sidebar::reactToSelection() {
    using Kind = SidebarItem::Kind;
    using Page = StorageModel::Page;
    if (!selection_) {
        model_.setPage(Page::folder);
        return;
    }
    switch (selection_->kind) {
    case Kind::overview: model_.setPage(Page::overview); return;
    case Kind::duplicates: model_.setPage(Page::duplicates); return;
    case Kind::recentlyDeleted: model_.setPage(Page::recentlyDeleted); return;
    case Kind::folder:
        model_.setPage(Page::folder);
        if (model_.current() != selection_->folder.get()) {
            model_.setCurrent(selection_->folder.get());
            model_.setSelection({});
        }
        return;
    case Kind::location:
        model_.setPage(Page::folder);
        // The place on show is not scanned again by a click; "Scan Again" does that.
        if (!(model_.location() == selection_->location && model_.root())) model_.setLocation(selection_->location);
        return;
    }
}

// The tree follows navigation: the folder on show is opened to and selected.
void Sidebar::followCurrent() {
    FileNode* current = model_.current();
    if (!current || !current->parent() || !foldersSection_) return;
    std::vector<FileNode*> way;
    for (FileNode* n = current; n && n->parent(); n = n->parent()) way.insert(way.begin(), n);
    updating_ = true;
    QTreeWidgetItem* at = foldersSection_;
    for (size_t i = 0; i < way.size(); ++i) {
        populate(at);
        QTreeWidgetItem* next = nullptr;
        for (int c = 0; c < at->childCount(); ++c) {
            auto found = items_.find(at->child(c));
            if (found != items_.end() && found->second.folder.get() == way[i]) next = at->child(c);
        }
        if (!next) break;
        if (i + 1 < way.size()) {
            expanded_.insert(way[i]->id());
            populate(next);
            next->setExpanded(true);
        }
        at = next;
    }
    updating_ = false;
    SidebarItem item;
    item.kind = SidebarItem::Kind::folder;
    item.folder = NodeRef(current);
    if (!(selection_ == item)) {
        selection_ = item;
        showSelection();
    }
}

void Sidebar::refreshDisks() {
    disks_ = platform::isDemo() ? std::vector<std::string>{} : platform::mountedDisks();
    rebuild();
    showSelection();
}

void Sidebar::chooseFolder() {
    QFileDialog dialog(window(), QStringLiteral("Choose a folder to scan"), QDir::homePath());
    dialog.setFileMode(QFileDialog::Directory);
    dialog.setOption(QFileDialog::ShowDirsOnly);
    dialog.setLabelText(QFileDialog::Accept, QStringLiteral("Scan"));
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) return;
    select(locationItem(ScanLocation::custom(toBytes(dialog.selectedFiles().front()))));
}

} // namespace brenvo
