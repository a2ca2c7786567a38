// Boost.JSON compiled from its header-only form, for builds whose C++
// library differs from the one Debian's libboost-json was built with.
#include <boost/json/src.hpp>
