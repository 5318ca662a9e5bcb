# stubs pending
