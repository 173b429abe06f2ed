#include "ui/apply_pack.h"

#include <QDialogButtonBox>
#include <QEvent>
#include <QGridLayout>
#include <QItemSelectionModel>
#include <QLabel>
#include <QListView>

#include "ui/pack_content_model.h"

apply_pack::apply_pack(QWidget* parent)
    : QDialog(parent)
{
    setObjectName(QStringLiteral("apply_pack"));
    m_packs = new pack_list_model(this);
    m_content = new pack_content_model(this);

    l_packs_head = new QLabel(this);
    l_packs = new QListView(this);
    l_packs->setObjectName(QStringLiteral("l_packs"));
    l_packs->setModel(m_packs);
    l_packs->setSelectionMode(QAbstractItemView::SingleSelection);
    l_packs_head->setBuddy(l_packs);
    l_devices_head = new QLabel(this);
    l_devices = new QListView(this);
    l_devices->setObjectName(QStringLiteral("l_devices"));
    l_devices->setModel(m_content);
    l_devices_head->setBuddy(l_devices);
    buttonBox = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    buttonBox->setObjectName(QStringLiteral("buttonBox"));

    connect(l_packs, &QListView::activated, this, &apply_pack::on_l_packs_activated);
    // A plain click or arrow key moves the current row without activating it: follow that too.
    connect(l_packs->selectionModel(), &QItemSelectionModel::currentChanged, this,
        [this](const QModelIndex& current) { on_l_packs_activated(current); });
    connect(buttonBox, &QDialogButtonBox::accepted, this, &apply_pack::on_buttonBox_accepted);
    connect(buttonBox, &QDialogButtonBox::rejected, this, &QDialog::reject);

    auto* layout = new QGridLayout(this);
    layout->addWidget(l_packs_head, 0, 0);
    layout->addWidget(l_devices_head, 0, 1);
    layout->addWidget(l_packs, 1, 0);
    layout->addWidget(l_devices, 1, 1);
    layout->addWidget(buttonBox, 2, 0, 1, 2);
    retranslate();
    resize(560, 360);
}

void apply_pack::changeEvent(QEvent* event)
{
    if (event->type() == QEvent::LanguageChange)
        retranslate();
    QDialog::changeEvent(event);
}

void apply_pack::retranslate()
{
    setWindowTitle(tr("Applying firmware packages"));
    l_packs_head->setText(tr("Firmware packages:"));
    l_devices_head->setText(tr("Target devices:"));
}

void apply_pack::set_packs(const QList<pack_list_model::record>& packs)
{
    m_lists.clear();
    m_current.clear();
    m_content->set_list({});
    for (const auto& p : packs)
        m_lists.insert(p.path, p.targets);
    m_packs->set_records(packs);
    if (!packs.isEmpty()) {
        l_packs->setCurrentIndex(m_packs->index(0));
        show_pack(0);
    }
}

model_structures::device_list apply_pack::current_targets() const
{
    return m_content->list();
}

void apply_pack::on_l_packs_activated(const QModelIndex& index)
{
    if (!index.isValid() || index.model() != m_packs)
        return;
    show_pack(index.row());
}

void apply_pack::on_buttonBox_accepted()
{
    store_current();
    model_structures::device_list chosen;
    for (const auto& t : m_content->list()) {
        if (t.checked)
            chosen.append(t);
    }
    emit pack_accepted(chosen);
    accept();
}

void apply_pack::show_pack(int row)
{
    const QString path = m_packs->at(row).path;
    if (path == m_current)
        return;
    store_current();
    m_current = path;
    m_content->set_list(m_lists.value(path));
}

void apply_pack::store_current()
{
    if (!m_current.isEmpty())
        m_lists.insert(m_current, m_content->list());
}
