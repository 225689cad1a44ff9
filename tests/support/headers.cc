// Exists for the headers that are compiled for all tests together.
