// Copy-on-write bodies shared between handles.
//
// Variables, value-label maps and extension records are small handles over a
// reference-counted body. Copying a handle shares the body; a handle about to
// change a body that another handle also refers to first takes a private copy
// of it, so that no change is ever seen through another handle.
#pragma once

#include <memory>

namespace murv {

// Makes the body behind `body` private to this handle (copying it when it is
// shared) and returns it for writing. The body must exist.
template <class Body>
Body& MakePrivate(std::shared_ptr<Body>& body)
{
    if (body.use_count() > 1) body = std::make_shared<Body>(*body);
    return *body;
}

}  // namespace murv
