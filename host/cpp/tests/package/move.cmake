# Nothing is left where the installation was made.
file(REMOVE_RECURSE "${PREFIX}")
file(RENAME "${FROM}" "${PREFIX}")
