library(testthat)
library(murvio)

test_check("murvio")
