* Infeasible: x + y >= 3 and x + y <= 2 with x, y >= 0.
NAME          INFEASIBLE
ROWS
 N  COST
 G  ATLEAST
 L  ATMOST
COLUMNS
    X         COST             1.0   ATLEAST          1.0
    X         ATMOST           1.0
    Y         COST             1.0   ATLEAST          1.0
    Y         ATMOST           1.0
RHS
    RHS       ATLEAST          3.0   ATMOST           2.0
ENDATA
