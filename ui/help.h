#pragma once

#include <QDialog>
#include <QMap>
#include <QUrl>

class QLineEdit;
class QSettings;
class QSplitter;
class QTextBrowser;
class QTreeWidget;
class QTreeWidgetItem;

// The built-in reference: pages of the resources in the language chosen for them, with
// commands that run when clicked or go to the console's input, and a settings page of its own.
class help final : public QDialog
{
    Q_OBJECT
public:
    // Where the dialog keeps its settings.
    static inline const QString settings_group = QStringLiteral("Help");

    // Resources of the pages; each holds one file per language, "<base>.<locale>".
    static inline const QString cmd_reference = QStringLiteral(":/docs/cmd_reference");
    static inline const QString lua_reference = QStringLiteral(":/docs/lua_reference");
    static inline const QString settings_page = QStringLiteral(":/docs/settings_page");
    static inline const QString styles = QStringLiteral(":/help/styles");

    explicit help(QSettings& settings, QWidget* parent = nullptr);
    Q_DISABLE_COPY_MOVE(help)

    // Shows the page of a resource and marks it in the tree.
    void open_page(const QString& base);
    QString current_page() const { return m_page; }

    // The language of the pages: the override, or the current locale when there is none.
    QString page_language() const;
    // The text of a resource in a language, "en_US" when it has no file of that one; empty
    // when it can't be read.
    static QString read_resource(const QString& base, const QString& language);

signals:
    // A command of a page was clicked: run it at once, or hand it to the console to complete.
    void cmd_clicked(const QString& cmd, bool execute);

private slots:
    void on_index_itemActivated(QTreeWidgetItem* item, int column);
    void on_doc_anchorClicked(const QUrl& url);
    void on_search_textEdited(const QString& text);
    void on_search_returnPressed();

protected:
    void changeEvent(QEvent* event) override;
    void showEvent(QShowEvent* event) override;

private:
    void build_tree();
    void load_page();
    // The values of the "%%name%%" places of a page.
    QMap<QString, QString> variables() const;
    bool execute_commands() const;

    QSettings& m_settings;
    QTreeWidget* m_index = nullptr;
    QTextBrowser* m_doc = nullptr;
    QLineEdit* m_search = nullptr;
    QSplitter* m_splitter = nullptr;
    QString m_page;
};
