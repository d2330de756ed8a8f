// NBImageView: where NBImageCache puts a picture. The library draws nothing, so the host adapts its own
// image widget to this interface.
//
// setImageData receives the image file's bytes exactly as the server sent them (PNG, JPEG, GIF, WebP...),
// never decoded. The host decodes them with its toolkit (for example by loading them into a pixbuf or an
// image object from data), shows the result, and ignores bytes that do not decode: the cache cannot tell
// a picture from an error page that came with a success status.
//
// Threads: NBImageCache calls setImageData on the main queue for downloads, and on the calling thread for
// the cached picture that updateImage shows at once (the host calls updateImage on its main thread).
// Lifetime: the cache holds views weakly; a view destroyed before its download completes is skipped.
#pragma once

#include "nbbase/foundation/Value.h"

namespace nb {

class NBImageView {
public:
    virtual ~NBImageView() = default;
    virtual void setImageData(const Data& bytes) = 0;
};

}  // namespace nb
