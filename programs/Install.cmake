# What is installed beside the library.
