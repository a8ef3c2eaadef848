#include "open/DiskChooser.h"

#include "ui/platform/TextMarks.h"

#include <QAccessible>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QGridLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLocale>
#include <QPushButton>
#include <QStyle>
#include <QTableWidget>

using platform::MacDisk;

namespace {

constexpr int pathRole = Qt::UserRole;
constexpr int userRole = Qt::UserRole + 1;

QString accessText(MacDisk::Access access)
{
    switch (access) {
    case MacDisk::Access::ReadAndWrite:
        return QStringLiteral("Read and write");
    case MacDisk::Access::ReadOnly:
        return QStringLiteral("Read only");
    case MacDisk::Access::Denied:
        break;
    }
    return QStringLiteral("You may not write");
}

QString nothingMounted()
{
    return QStringLiteral(
        "No Mac's disk is mounted on this computer.\n\n"
        "Connect the disk, open it in your file manager, and press Search Again. A disk that your "
        "file manager does not show can be mounted from a terminal: “lsblk -f” lists the disks and "
        "their parts, and “sudo mount /dev/NAME /mnt” mounts the part called NAME.\n\n"
        "If you have a copy of the disk, press Other Folder and choose the folder that holds "
        "“Users” and “Applications”.");
}

} // namespace

DiskChooser::DiskChooser(const QList<MacDisk> &disks, const QString &problem)
    : m_sign(new QLabel)
    , m_message(new QLabel)
    , m_table(new QTableWidget(0, 5))
{
    setWindowTitle(QStringLiteral("Open a Mac's Disk"));

    m_message->setObjectName(QStringLiteral("message"));
    m_message->setTextFormat(Qt::PlainText);
    m_message->setWordWrap(true);
    m_message->setAlignment(Qt::AlignLeading | Qt::AlignTop);
    m_message->setTextInteractionFlags(Qt::TextSelectableByMouse);

    m_table->setAccessibleName(QStringLiteral("Disks"));
    m_table->setHorizontalHeaderLabels({QStringLiteral("Disk"), QStringLiteral("User"),
                                        QStringLiteral("Size"), QStringLiteral("Access"),
                                        QStringLiteral("Folder")});
    m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_table->setSelectionMode(QAbstractItemView::SingleSelection);
    m_table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_table->setTextElideMode(Qt::ElideMiddle);
    m_table->setShowGrid(false);
    m_table->setWordWrap(false);
    m_table->setTabKeyNavigation(false);
    m_table->verticalHeader()->hide();
    m_table->horizontalHeader()->setHighlightSections(false);
    m_table->horizontalHeader()->setStretchLastSection(true);
    m_table->horizontalHeader()->setDefaultAlignment(Qt::AlignLeading | Qt::AlignVCenter);

    auto *const buttons = new QDialogButtonBox(QDialogButtonBox::Open | QDialogButtonBox::Cancel);
    m_open = buttons->button(QDialogButtonBox::Open);
    m_open->setText(QStringLiteral("&Open"));
    const auto addButton = [&](const QString &text, void (DiskChooser::*work)()) {
        auto *const button = buttons->addButton(text, QDialogButtonBox::ActionRole);
        button->setAutoDefault(false);
        connect(button, &QPushButton::clicked, this, work);
    };
    addButton(QStringLiteral("Other &Folder…"), &DiskChooser::chooseFolder);
    addButton(QStringLiteral("&Search Again"), &DiskChooser::searchAgain);

    auto *const layout = new QGridLayout(this);
    layout->setColumnStretch(1, 1);
    layout->setRowStretch(1, 1);
    layout->addWidget(m_sign, 0, 0, Qt::AlignTop);
    layout->addWidget(m_message, 0, 1);
    layout->addWidget(m_table, 1, 0, 1, 2);
    layout->addWidget(buttons, 2, 0, 1, 2);
    const QFontMetrics metrics = fontMetrics();
    resize(metrics.averageCharWidth() * 110, metrics.height() * 20);

    connect(buttons, &QDialogButtonBox::accepted, this, [this] { choose(m_table->currentRow()); });
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(m_table, &QTableWidget::doubleClicked, this,
            [this](const QModelIndex &index) { choose(index.row()); });
    connect(m_table, &QTableWidget::itemSelectionChanged, this,
            [this] { m_open->setEnabled(m_table->selectionModel()->hasSelection()); });
    offer(disks, problem);
}

void DiskChooser::offer(const QList<MacDisk> &disks, const QString &problem)
{
    m_table->setRowCount(0);
    for (const MacDisk &disk : disks) {
        for (const MacDisk::User &user : disk.users()) {
            appendRow(disk, user.name, accessText(user.access));
        }
        if (disk.users().isEmpty()) {
            appendRow(disk, {}, {});
        }
    }
    m_table->resizeColumnsToContents();
    for (int column = 0; column + 1 < m_table->columnCount(); ++column) {
        const int margin = 2 * fontMetrics().averageCharWidth();
        m_table->setColumnWidth(column, m_table->columnWidth(column) + margin);
    }
    m_table->setVisible(!disks.isEmpty());
    m_open->setEnabled(false);

    QStringList paragraphs;
    if (!problem.isEmpty()) {
        paragraphs.append(platform::singleLine(problem));
    }
    paragraphs.append(disks.isEmpty() ? nothingMounted()
                                      : QStringLiteral("Choose the disk, and the user on it, whose "
                                                       "settings and data you want to work on."));
    m_message->setText(paragraphs.join(QStringLiteral("\n\n")));
    const int size = style()->pixelMetric(QStyle::PM_MessageBoxIconSize, nullptr, this);
    const auto sign =
        problem.isEmpty() ? QStyle::SP_MessageBoxInformation : QStyle::SP_MessageBoxWarning;
    m_sign->setPixmap(style()->standardIcon(sign, nullptr, this).pixmap(size));
    m_sign->setVisible(!problem.isEmpty() || disks.isEmpty());
    QAccessibleEvent alert(m_message, QAccessible::Alert);
    QAccessible::updateAccessibility(&alert);

    if (!disks.isEmpty()) {
        m_table->selectRow(0);
        m_table->setFocus();
    }
}

void DiskChooser::appendRow(const MacDisk &disk, const QString &user, const QString &access)
{
    const std::optional<qint64> size = disk.size();
    const QStringList texts = {
        disk.name(), user.isNull() ? QStringLiteral("Nobody has a library") : user,
        size ? QLocale().formattedDataSize(*size, 1, QLocale::DataSizeSIFormat) : QString(), access,
        disk.path()};
    const int row = m_table->rowCount();
    m_table->insertRow(row);
    for (int column = 0; column < texts.size(); ++column) {
        auto *const item = new QTableWidgetItem(platform::singleLine(texts[column]));
        item->setData(pathRole, disk.path());
        item->setData(userRole, user);
        m_table->setItem(row, column, item);
    }
}

void DiskChooser::searchAgain()
{
    offer(MacDisk::mounted(), {});
}

void DiskChooser::chooseFolder()
{
    const QString folder = QFileDialog::getExistingDirectory(
        this, QStringLiteral("Choose the Folder That Holds “Users” and “Applications”"));
    if (folder.isEmpty()) {
        return;
    }
    QString problem;
    const auto disk = MacDisk::at(folder, &problem);
    if (!disk) {
        offer(MacDisk::mounted(), problem);
        return;
    }
    offer({*disk}, {});
    if (m_table->rowCount() == 1) {
        choose(0);
    }
}

void DiskChooser::choose(int row)
{
    const QTableWidgetItem *const item = m_table->item(row, 0);
    if (!item) {
        return;
    }
    m_path = item->data(pathRole).toString();
    m_user = item->data(userRole).toString();
    accept();
}
