#include "virtual/inside.h"

namespace vap {
namespace {

thread_local int inside_depth = 0;

}  // namespace

Inside::Inside() {
    ++inside_depth;
}
Inside::~Inside() {
    --inside_depth;
}
Outside::Outside() : depth_(inside_depth) {
    inside_depth = 0;
}
Outside::~Outside() {
    inside_depth = depth_;
}
bool inside() {
    return inside_depth > 0;
}

}  // namespace vap
