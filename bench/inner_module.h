// Parses the call data of a reply into a result-set area, which may move and grow; makes and releases such areas.
#pragma once

extern "C" __attribute__((visibility("default"))) int rixbenchParse(int identifiers, const char *callData, int length,
                                                                    char **area, int *areaSize);
extern "C" __attribute__((visibility("default"))) char *rixbenchNewArea(int size);
extern "C" __attribute__((visibility("default"))) void rixbenchFreeArea(char *area);
