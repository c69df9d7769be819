// What a shared library shows to others: the libraries are compiled with hidden visibility, and the
// namespaces of their headers say MOX_API. What only a source file declares stays inside.
#pragma once

#define MOX_API [[gnu::visibility("default")]]
