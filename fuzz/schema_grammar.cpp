// The target proto_dir on schemas that a grammar makes from the bytes of the input: all of them load, or almost.
#define ZOTUNING_BY_GRAMMAR
#include "proto_dir.cpp"
