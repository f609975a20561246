#pragma once

/// Marks a name that libmorlu_io exports; everything else in it is hidden.
#define OSG_IO_API __attribute__((visibility("default")))
