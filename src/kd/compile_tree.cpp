#include "kd/compile_tree.h"

#include "kd/build.h"

namespace morlu {

template void compile_tree(osg::osg_geoset&, kd_tree&, const kd_build_setup&,
                           kd_strategy_ObjMedian);
template void compile_tree(osg::osg_line_geoset&, kd_tree&, const kd_build_setup&,
                           kd_strategy_ObjMedian);
template void compile_tree(osg::osg_point_geoset&, kd_tree&, const kd_build_setup&,
                           kd_strategy_ObjMedian);
template void compile_tree(osg::osg_geoset&, kd_tree&, const kd_build_setup&,
                           kd_strategy_SurfaceArea);

}  // namespace morlu
