#pragma once

#include <QDialog>

class QCheckBox;

// The caution shown at start until the user has accepted it for good.
class usage_warning final : public QDialog
{
    Q_OBJECT
public:
    explicit usage_warning(QWidget* parent = nullptr);
    Q_DISABLE_COPY_MOVE(usage_warning)

    // The box "do not show again" is ticked.
    bool dont_show_again() const;

private:
    QCheckBox* m_dont_show = nullptr;
};
