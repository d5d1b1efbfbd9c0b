#pragma once

#include "model/PanelQuotesManageGlobal.h"

namespace Hlx {

// What a host calls to keep a panel current when the data it shows changes elsewhere (another
// operator, another process). The host decides when; the panel only reads again. A panel
// overrides the reloads of what it shows.
class PANELQUOTESMANAGE_EXPORT IReloadable {
public:
    // The shared data a panel shows.
    enum Content { QuoteSources, WholeQuoteSettings, Level2Token };

    virtual ~IReloadable();

    virtual bool shows(Content content) const = 0;
    // A load of the panel runs, so that a reload now would only restart it. By default the
    // panel's loads are not waited for.
    virtual bool isLoading() const;

    // Reads the quote sources again and selects the source that was selected.
    virtual void reloadSources();
    // Reads the whole-quote settings again.
    virtual void reloadWholeQuoteSettings();
    virtual void reloadLevel2Token();
};

}  // namespace Hlx
