#pragma once

#include <QFont>
#include <QObject>

class QWidget;

// The size of the client's text, as the settings page chooses it. Widgets give their text
// sizes in design pixels, the sizes at the settings' "中" (14 px); a size the user picks
// scales them all and is the application font's size, so text without a size of its own
// follows too. "跟随系统" (0) puts back the system's font as it was at start and the
// design sizes as they are. Widgets that size text themselves rebuild on changed().
class UiFont : public QObject {
    Q_OBJECT
public:
    static constexpr int kDesignPixels = 14;

    static UiFont& instance();

    // Remembers the application font as the system's. The first call counts: it must come
    // before any change (start-up); later calls do nothing.
    static void captureSystemFont();
    static QFont systemFont();

    // Pixels, 0 for the system's font.
    void apply(int pixels);
    int chosen() const { return chosen_; }

    // A design size at the chosen size.
    static int px(int designPixels);
    // The application font at px(designPixels).
    static QFont font(int designPixels);
    // A style sheet with every "font-size:Npx" taken as a design size and scaled.
    static QString scaled(const QString& designSheet);
    // Sets scaled(designSheet) on the widget now and again whenever the size changes.
    static void keepStyled(QWidget* widget, const QString& designSheet);

signals:
    void changed();

private:
    UiFont() = default;
    int chosen_ = 0;
};
