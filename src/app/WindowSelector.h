#pragma once

#include "app/SelectorWindow.h"

#include "core/model/CaptureSources.h"

#include <vector>

class ThumbnailTile;

// "Select Window": the desktop's windows as thumbnails with their titles; one is chosen, or
// several for the windows mode. Thumbnails are taken one per turn of the event loop so the
// window shows at once. Thread: main.
class WindowSelector final : public SelectorWindow {
    Q_OBJECT
public:
    WindowSelector(std::vector<SCWindow> windows, bool several, QWidget* parent = nullptr);

    std::vector<SCWindow> chosenWindows() const;

signals:
    void windowsChosen(const std::vector<SCWindow>& windows);

protected:
    void confirm() override;

private:
    void loadNextThumbnail();

    std::vector<SCWindow> m_windows;
    std::vector<ThumbnailTile*> m_tiles;
    size_t m_nextThumbnail = 0;
};
