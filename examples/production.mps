* Product mix: two products made in three plants. Each unit of product 1 earns 3 and
* takes 1 hour in plant 1 and 3 hours in plant 3; each unit of product 2 earns 5 and
* takes 2 hours in plant 2 and 2 hours in plant 3. Plant 1 has 4 hours (a bound),
* plant 2 has 12 hours, plant 3 has 18 hours. Maximise the earnings: 36, at (2, 6).
NAME          PRODUCTION
OBJSENSE
    MAX
ROWS
 N  EARN
 L  PLANT2
 L  PLANT3
COLUMNS
    PROD1     EARN             3.0   PLANT3           3.0
    PROD2     EARN             5.0   PLANT2           2.0
    PROD2     PLANT3           2.0
RHS
    RHS       PLANT2          12.0   PLANT3          18.0
BOUNDS
 UP BND       PROD1            4.0
ENDATA
