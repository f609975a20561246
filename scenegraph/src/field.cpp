#include "osg/field.h"

namespace osg {

Field::~Field() = default;

StringConversionState::~StringConversionState() = default;
void StringConversionState::beginField(const Field&, std::string&) {}
void StringConversionState::endField(const Field&, std::string&) {}

}  // namespace osg
