// Parses the call data of a reply into a result-set area, which may move and grow.
#pragma once

extern "C" __attribute__((visibility("default"))) int rixbenchParse(int identifiers, const char *callData, int length,
                                                                    char **area, int *areaSize);
