// What libmorrowkit.so shows to those who link it; everything else in it is hidden.
#pragma once

#define MORROW_KIT_API __attribute__((visibility("default")))
