#pragma once

/// Marks a name that libmorlu exports; everything else in it is hidden.
#define MORLU_API __attribute__((visibility("default")))
