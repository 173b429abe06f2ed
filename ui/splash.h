#pragma once

#include <QSplashScreen>

// The start-up picture with the stage being loaded and the count of stages.
class splash final : public QSplashScreen
{
    Q_OBJECT
public:
    splash();
    Q_DISABLE_COPY_MOVE(splash)

    // Shows "Loading: <text>" and number of total.
    void set_stage(const QString& text, int number, int total);

    QString stage_text() const { return m_text; }
    int stage_number() const { return m_number; }
    int stage_total() const { return m_total; }

protected:
    void drawContents(QPainter* painter) override;

private:
    // The artwork rendered at its design size; a plain panel when it can't be read.
    static QPixmap artwork();

    QString m_text;
    int m_number = 0;
    int m_total = 0;
};
