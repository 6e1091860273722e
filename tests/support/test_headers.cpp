// test_headers.cpp - stands for the headers that the tests share, which are compiled with it.
