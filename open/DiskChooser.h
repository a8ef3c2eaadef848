#pragma once

#include "system/platform/MacDisk.h"

#include <QDialog>

class QLabel;
class QPushButton;
class QTableWidget;

/// Asks for one of several disks and for one of the users on it. One row stands for each user.
class DiskChooser : public QDialog
{
    Q_OBJECT

public:
    /// Offers these disks; a `problem`, unless it is empty, is told above them.
    DiskChooser(const QList<platform::MacDisk> &disks, const QString &problem);

    /// What has been chosen, when the dialog was accepted. On a disk on which nobody has a library
    /// the user is empty.
    QString path() const { return m_path; }
    QString user() const { return m_user; }

private:
    void offer(const QList<platform::MacDisk> &disks, const QString &problem);
    void appendRow(const platform::MacDisk &disk, const QString &user, const QString &access);
    void searchAgain();
    void chooseFolder();
    void choose(int row);

    QLabel *m_sign;
    QLabel *m_message;
    QTableWidget *m_table;
    QPushButton *m_open;
    QString m_path;
    QString m_user;
};
