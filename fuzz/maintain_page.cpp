// Any bytes as a maintenance page reply, on a fresh model: parse stores the "maintain_page" string value
// (nothing for a missing or null one) and never marks the model fetched; an address is valid exactly when
// it is non-empty and strict URL parsing gives it a scheme and a host.
//
// Seed: examples/replies/getMaintainPageConfig.json.
#include <cstddef>
#include <cstdint>

#include "fuzz/CatalogCollaborators.h"
#include "nbbase/catalog/MaintainPageInfo.h"
#include "nbbase/foundation/Url.h"

namespace {

using nbfuzz::check;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    auto& collaborators = nbfuzz::CatalogCollaborators::shared();
    nb::MaintainPageInfo page(collaborators.bridge(), collaborators.background());
    const nb::Value reply = nbfuzz::decodeInput(data, size);
    page.parse(reply);

    const nb::Value& sent = reply["maintain_page"];
    const auto url = page.pageUrl();
    check(sent.isAbsent() || sent.isNull() ? !url : url == sent.stringValue());
    check(!page.fetched());

    const auto parsed = url ? nb::Url::parse(*url) : std::nullopt;
    const bool usable = url && !url->empty() && parsed && !parsed->scheme().empty() && !parsed->host().empty();
    check(page.valid() == usable);
    return 0;
}
