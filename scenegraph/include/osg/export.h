#pragma once

/// Marks a name that libmorlu_scenegraph exports; everything else in it is hidden.
/// Also needed on class templates whose type identity crosses a library boundary.
#define OSG_API __attribute__((visibility("default")))
