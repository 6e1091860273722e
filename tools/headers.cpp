// headers.cpp - stands for the headers that many sources share, which are compiled with it.
