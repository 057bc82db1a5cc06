// Gives a target of precompiled headers something to compile.
