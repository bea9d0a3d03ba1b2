#include "nat/translation_counts.h"

#ifndef NDEBUG
TranslationCounts translationCounts;
#endif
